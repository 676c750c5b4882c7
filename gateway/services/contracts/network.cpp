// platform/network.h: the gateway's network state and addresses.
#include "platform/network.h"

#include "calls/calls.h"
#include "subjects/network.h"

using namespace gateway;

int32_t engr_get_wired_wifi_current_net(uint8_t *kind) {
    return service(call("engr_get_wired_wifi_current_net"), [&] {
        *kind = NETWORK_KIND_WIRED;
        return 0;
    });
}

uint32_t engr_get_gw_nw_status(void) {
    return is_network_up();
}

int32_t bnw_get_ip(gw_addr_t *address) {
    return service(call("bnw_get_ip"), [&] { return write_address(*address); });
}

uint32_t bnw_need_wifi_cfg(void) {
    return is_wifi_config_needed();
}

int32_t wf_get_ip(int32_t interface_kind, gw_addr_t *address) {
    return service(call("wf_get_ip"), [&] {
        return interface_kind == WF_STATION ? write_address(*address) : result_argument;
    });
}
