/* What the platform knows of the gateway's network and Wi-Fi. All of these may be called on any
 * thread and do not block. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The platform's network-address record, 48 bytes: three NUL-terminated texts in dotted decimal.
 */
typedef struct {
    char ip[16];      /**< address of the gateway; empty when it has none */
    char gateway[16]; /**< default gateway; not read by the agent */
    char mask[16];    /**< network mask; not read by the agent */
} gw_addr_t;

/** Kinds of network written by engr_get_wired_wifi_current_net. */
enum {
    NETWORK_KIND_WIRED = 0, /**< the server waits until bnw_get_ip has an address */
    NETWORK_KIND_WIFI = 1
};

/** Which interface wf_get_ip is asked for. */
enum { WF_STATION = 1 };

/**
 * Kind of network in use.
 *
 * @param[out] kind  NETWORK_KIND_WIRED or another value; unchanged on failure
 * @return 0; any other value when the kind is not known
 */
int32_t engr_get_wired_wifi_current_net(uint8_t *kind);

/**
 * State of the gateway's network.
 *
 * @return a value whose low byte is non-zero while the network is up; the rest is not looked at
 */
uint32_t engr_get_gw_nw_status(void);

/**
 * Address of the wired network.
 *
 * @param[out] address  filled on success
 * @return 0; any other value when there is none
 */
int32_t bnw_get_ip(gw_addr_t *address);

/**
 * Whether the gateway still needs Wi-Fi configuration.
 *
 * @return a value whose lowest bit is set when it does; the rest is not looked at
 */
uint32_t bnw_need_wifi_cfg(void);

/**
 * Address by which apps on the LAN reach the gateway, whatever its kind of network is: a gateway on
 * the wire gives that of the wire.
 *
 * @param interface_kind  WF_STATION
 * @param[out] address    filled on success
 * @return 0; any other value when there is none
 */
int32_t wf_get_ip(int32_t interface_kind, gw_addr_t *address);

#ifdef __cplusplus
}
#endif
