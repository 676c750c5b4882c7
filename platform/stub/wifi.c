/* Wi-Fi of a new port. A gateway without Wi-Fi keeps these as they are. */
#include "platform/wifi.h"

int32_t wf_wk_mode_get(uint32_t *mode) {
    (void)mode;
    return -1;
}
int32_t wf_ap_stop(void) {
    return -1;
}
int32_t wf_station_connect(const char *ssid, const char *password) {
    (void)ssid;
    (void)password;
    return -1;
}
