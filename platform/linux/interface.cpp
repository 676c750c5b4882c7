/* The configured network, and the state of its interfaces. */
#include "linux_port/port.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include <memory>

namespace linux_port {

namespace {

network_config &network() {
    static auto &instance = *new network_config;
    return instance;
}

using interface_list = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

interface_list interfaces() {
    ifaddrs *list = nullptr;
    return {getifaddrs(&list) == 0 ? list : nullptr, freeifaddrs};
}

/** Text of the address that `member` of the first IPv4 entry of an interface points to. */
std::optional<std::string> address_text(std::string_view name, sockaddr *ifaddrs::*member) {
    const interface_list list = interfaces();
    for (const ifaddrs *entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        const bool ipv4 = entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET;
        if (!ipv4 || name != entry->ifa_name || entry->*member == nullptr) {
            continue;
        }
        const auto *address = reinterpret_cast<const sockaddr_in *>(entry->*member);
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
        return text;
    }
    return std::nullopt;
}

} // namespace

bool configure_network(const network_config &config) {
    in_addr parsed{};
    if (config.interface.size() >= IFNAMSIZ ||
        (!config.any_address.empty() &&
         inet_pton(AF_INET, config.any_address.c_str(), &parsed) != 1)) {
        return false;
    }
    network() = config;
    return true;
}

const network_config &configured_network() {
    return network();
}

std::optional<std::string> interface_address(std::string_view name) {
    return address_text(name, &ifaddrs::ifa_addr);
}

std::optional<std::string> interface_mask(std::string_view name) {
    return address_text(name, &ifaddrs::ifa_netmask);
}

bool interface_is_up(std::string_view name) {
    const interface_list list = interfaces();
    for (const ifaddrs *entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
        if (name == entry->ifa_name) {
            constexpr unsigned int usable = IFF_UP | IFF_RUNNING;
            return (entry->ifa_flags & usable) == usable;
        }
    }
    return false;
}

} // namespace linux_port
