// platform/wifi.h: the operations of the Wi-Fi layer.
#include "platform/wifi.h"

#include "calls/calls.h"
#include "subjects/network.h"

using namespace gateway;

int32_t wf_wk_mode_get(uint32_t *mode) {
    return service(call("wf_wk_mode_get"), [&] {
        *mode = wifi_mode();
        return 0;
    });
}

int32_t wf_ap_stop(void) {
    return service(call("wf_ap_stop"), [] {
        stop_access_point();
        return 0;
    });
}

int32_t wf_station_connect(const char *ssid, const char *password) {
    return service(
        call("wf_station_connect"),
        [&](call_arguments &list) { list.text("ssid", ssid).secret("password", password); },
        [&] {
            if (ssid == nullptr) {
                return result_argument;
            }
            connect_station(ssid);
            return 0;
        });
}
