/* Addresses of the contracts (a number in host byte order) as the system's, and as text. */
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>

namespace linux_port {

inline sockaddr_in system_address(uint32_t address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    result.sin_addr.s_addr = htonl(address);
    return result;
}

} // namespace linux_port
