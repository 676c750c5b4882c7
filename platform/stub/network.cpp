/*
 * Network state of a new port.
 * Needs: the kind of network in use, whether it is up, and the gateway's address on it. The server
 * waits until it is up; the discovery broadcast follows the address.
 */
#include "platform/network.h"

int32_t engr_get_wired_wifi_current_net(uint8_t *) {
    return -1;
}
uint32_t engr_get_gw_nw_status() {
    return 0;
}
int32_t bnw_get_ip(gw_addr_t *) {
    return -1;
}
uint32_t bnw_need_wifi_cfg() {
    return 0;
}
int32_t wf_get_ip(int32_t, gw_addr_t *) {
    return -1;
}
