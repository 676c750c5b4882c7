/* Addresses of the contracts (a number in host byte order) as the system's, and as text. */
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace linux_port {

inline sockaddr_in system_address(uint32_t address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address);
    return result;
}

/** An address in dotted decimal. */
inline std::string address_text(uint32_t address) {
    const in_addr in_system{htonl(address)};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &in_system, text, sizeof text);
    return text;
}

} // namespace linux_port
