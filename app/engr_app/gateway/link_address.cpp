// The system's tables of neighbours, and of its own sockets.
#include "gateway/link_address.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <sstream>

#include <arpa/inet.h>
#include <fmt/format.h>

namespace engr_app {
namespace {

std::string neighbour_hardware(const std::string &address) {
    std::ifstream table("/proc/net/arp");
    std::string line;
    std::getline(table, line); // the header
    while (std::getline(table, line)) {
        std::istringstream cells(line);
        std::string neighbour;
        std::string hardware_type;
        std::string flags;
        std::string hardware;
        cells >> neighbour >> hardware_type >> flags >> hardware;
        if (neighbour == address && flags != "0x0") {
            return hardware;
        }
    }
    return "";
}

// A socket that listens at the address has a number that no other one gets while it is open.
std::string listening_socket(const std::string &address, uint16_t port) {
    constexpr const char *listening = "0A";
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
        return "";
    }
    const std::string wanted = fmt::format("{:08X}:{:04X}", parsed.s_addr, port);
    const std::string any = fmt::format("{:08X}:{:04X}", INADDR_ANY, port);
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line); // the header
    std::string found;
    while (std::getline(table, line)) {
        std::istringstream cells(line);
        std::array<std::string, 10> cell; // index, local, remote, state, ... and the number last
        for (std::string &one : cell) {
            cells >> one;
        }
        if (cell[3] == listening && (cell[1] == wanted || (cell[1] == any && found.empty()))) {
            found = "socket " + cell[9];
        }
    }
    return found;
}

} // namespace

std::string link_address_of(const std::string &address, uint16_t port) {
    return address.starts_with("127.") ? listening_socket(address, port)
                                       : neighbour_hardware(address);
}

} // namespace engr_app
