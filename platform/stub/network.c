/*
 * Network state of a new port.
 * Needs: the kind of network in use, whether it is up, and the gateway's address on it. The server
 * waits until it is up; the discovery broadcast follows the address.
 */
#include "platform/network.h"

int32_t engr_get_wired_wifi_current_net(uint8_t *kind) {
    (void)kind;
    return -1;
}
uint32_t engr_get_gw_nw_status(void) {
    return 0;
}
int32_t bnw_get_ip(gw_addr_t *address) {
    (void)address;
    return -1;
}
uint32_t bnw_need_wifi_cfg(void) {
    return 0;
}
int32_t wf_get_ip(int32_t interface_kind, gw_addr_t *address) {
    (void)interface_kind;
    (void)address;
    return -1;
}
