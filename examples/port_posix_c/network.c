/* The state of the network: one wired interface. */
#include "internal.h"
#include "port.h"

#include "platform/network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>

static char interface[IF_NAMESIZE] = "lo";

void port_set_interface(const char *name) {
    snprintf(interface, sizeof interface, "%s", name);
}

const char *port_interface(void) {
    return interface;
}

static void store(char *field, size_t size, const struct sockaddr *address) {
    struct sockaddr_in ipv4;
    if (address != NULL) {
        memcpy(&ipv4, address, sizeof ipv4);
        inet_ntop(AF_INET, &ipv4.sin_addr, field, (socklen_t)size);
    }
}

/** Reads the first IPv4 address of the interface while that is up; 0, or -1 when there is none. */
static int32_t read_address(gw_addr_t *address) {
    struct ifaddrs *all = NULL;
    int32_t result = -1;
    if (getifaddrs(&all) != 0) {
        return -1;
    }
    for (const struct ifaddrs *one = all; one != NULL && result != 0; one = one->ifa_next) {
        if (one->ifa_addr != NULL && one->ifa_addr->sa_family == AF_INET &&
            strcmp(one->ifa_name, interface) == 0 && (one->ifa_flags & IFF_RUNNING) != 0) {
            memset(address, 0, sizeof *address);
            store(address->ip, sizeof address->ip, one->ifa_addr);
            store(address->mask, sizeof address->mask, one->ifa_netmask);
            result = 0;
        }
    }
    freeifaddrs(all);
    return result;
}

int32_t engr_get_wired_wifi_current_net(uint8_t *kind) {
    *kind = NETWORK_KIND_WIRED;
    return 0;
}

uint32_t engr_get_gw_nw_status(void) {
    gw_addr_t address;
    return read_address(&address) == 0 ? 1 : 0;
}

int32_t bnw_get_ip(gw_addr_t *address) {
    return read_address(address);
}

uint32_t bnw_need_wifi_cfg(void) {
    return 0;
}

int32_t wf_get_ip(int32_t interface_kind, gw_addr_t *address) {
    (void)interface_kind;
    return read_address(address);
}
