#include "console/place.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <array>
#include <charconv>

namespace console {
namespace {

bool is_address(const std::string &text) {
    std::array<unsigned char, sizeof(in6_addr)> address{};
    return inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
           inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

bool read_port(const std::string &text, uint16_t &port) {
    const char *const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, port);
    return error == std::errc() && rest == end;
}

} // namespace

std::optional<place> read_place(const std::string &text, place usual) {
    if (is_address(text)) {
        usual.address = text;
        return usual;
    }
    std::string port = text;
    if (const std::size_t colon = text.rfind(':'); colon != std::string::npos) {
        usual.address = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (usual.address.starts_with('[') && usual.address.ends_with(']')) {
            usual.address = usual.address.substr(1, usual.address.size() - 2);
        }
    }
    if (!is_address(usual.address) || !read_port(port, usual.port)) {
        return std::nullopt;
    }
    return usual;
}

bool is_loopback(const std::string &address) {
    return address.starts_with("127.") || address == "::1";
}

} // namespace console
