/* AirKiss LAN discovery of the WeChat platform. All but the receive task is called in a timer
 * callback. Any result other than 0 is a failure, which the caller logs. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Wi-Fi station states, as get_wf_gw_nw_status writes them, in which the station is connected. */
enum { WF_STATION_CONNECTED = 4, WF_STATION_CONNECTED_DHCP = 6, WF_STATION_CONNECTED_STATIC = 7 };

/**
 * Body of the thread that answers AirKiss requests. Returns when its thread is told to stop; waits
 * only in contract calls. It must neither start nor stop the agent: a stop waits for it.
 *
 * @param argument  null
 */
void ak_lan_rev_active_task(void *argument);

/**
 * State of the Wi-Fi station.
 *
 * @param[out] status  the state; unchanged on failure
 * @return 0; else the state is not known
 */
int32_t get_wf_gw_nw_status(uint8_t *status);

/** @return 1 when the gateway is active for AirKiss discovery, else another value */
int32_t get_ak_active_status(void);

/**
 * Informs the phone that network configuration has finished.
 *
 * @param random  the random byte of that configuration
 * @return 0 = sent; else not
 */
int32_t ak_lan_nwc_fin_inform(uint8_t random);

/**
 * Prepares the discovery packet.
 *
 * @param identity1  first identity string, read only during the call
 * @param identity2  second identity string, read only during the call
 * @return 0 = prepared; else there is no packet to send
 */
int32_t ak_lan_disc_init(const char *identity1, const char *identity2);

/**
 * Sends the prepared discovery packet.
 *
 * @return 0 = sent; else not
 */
int32_t ak_lan_disc_pack_send(void);

#ifdef __cplusplus
}
#endif
