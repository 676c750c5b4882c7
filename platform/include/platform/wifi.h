/* Wi-Fi operations of the platform. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Work mode of a Wi-Fi layer that runs the gateway's own access point. */
enum { WF_WORK_MODE_ACCESS_POINT = 4 };

/**
 * Work mode of the Wi-Fi layer. Any thread; does not block.
 *
 * @param[out] mode  the mode; unchanged on failure
 * @return 0; else the mode is not known. Not used
 */
int32_t wf_wk_mode_get(uint32_t *mode);

/**
 * Shuts the access point down. Any thread; may block for seconds.
 *
 * @return 0; else there was none, or it could not be shut down. Not used
 */
int32_t wf_ap_stop(void);

/**
 * Makes the station interface connect. Any thread; may block for seconds.
 *
 * @param ssid      network name, NUL-terminated
 * @param password  its password, NUL-terminated; null or empty for an open network
 * @return 0 = connected or connecting; else it could not. Not used
 */
int32_t wf_station_connect(const char *ssid, const char *password);

#ifdef __cplusplus
}
#endif
