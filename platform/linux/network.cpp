/*
 * State of the network for a gateway that takes the port as it is: one wired interface, the
 * configured one.
 */
#include "platform/network.h"

#include "linux_port/port.h"

#include <cstring>

namespace {

/** Stores an address text, which has at most 15 characters. */
void store(char (&field)[16], const std::string &text) {
    std::memcpy(field, text.c_str(), text.size() + 1);
}

int32_t read_address(gw_addr_t *address) {
    const linux_port::network_config &network = linux_port::configured_network();
    const auto ip = linux_port::interface_address(network.interface);
    if (!ip || address == nullptr) {
        return -1;
    }
    *address = {};
    store(address->ip, network.any_address.empty() ? *ip : network.any_address);
    store(address->mask, linux_port::interface_mask(network.interface).value_or(""));
    return 0;
}

} // namespace

int32_t engr_get_wired_wifi_current_net(uint8_t *kind) {
    *kind = NETWORK_KIND_WIRED;
    return 0;
}

uint32_t engr_get_gw_nw_status() {
    const std::string &interface = linux_port::configured_network().interface;
    const bool up = linux_port::interface_is_up(interface) &&
                    linux_port::interface_address(interface).has_value();
    return up ? 1 : 0;
}

int32_t bnw_get_ip(gw_addr_t *address) {
    return read_address(address);
}

uint32_t bnw_need_wifi_cfg() {
    return 0;
}

int32_t wf_get_ip(int32_t, gw_addr_t *address) {
    return read_address(address);
}
