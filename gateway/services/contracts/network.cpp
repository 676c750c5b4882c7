// platform/network.h, platform/wifi.h and platform/airkiss.h: the network layers.
#include "platform/network.h"

#include "calls/calls.h"
#include "platform/airkiss.h"
#include "platform/socket.h"
#include "platform/wifi.h"
#include "subjects/network.h"

using namespace gateway;

int32_t engr_get_wired_wifi_current_net(uint8_t *kind) {
    return service(call("engr_get_wired_wifi_current_net"), {}, [&] {
        *kind = NETWORK_KIND_WIRED;
        return 0;
    });
}

uint32_t engr_get_gw_nw_status(void) {
    return is_network_up();
}

int32_t bnw_get_ip(gw_addr_t *address) {
    return service(call("bnw_get_ip"), {}, [&] { return write_address(*address); });
}

uint32_t bnw_need_wifi_cfg(void) {
    return locked_network()->wifi_config_needed;
}

int32_t wf_get_ip(int32_t interface_kind, gw_addr_t *address) {
    return service(call("wf_get_ip"), {}, [&] {
        return interface_kind == WF_STATION ? write_address(*address) : result_argument;
    });
}

int32_t wf_wk_mode_get(uint32_t *mode) {
    return service(call("wf_wk_mode_get"), {}, [&] {
        *mode = locked_network()->wifi_mode;
        return 0;
    });
}

int32_t wf_ap_stop(void) {
    return service(call("wf_ap_stop"), {}, [] {
        const locked_network now;
        if (now->wifi_mode == WF_WORK_MODE_ACCESS_POINT) {
            now->wifi_mode = wifi_mode_station;
        }
        return 0;
    });
}

int32_t wf_station_connect(const char *ssid, const char *password) {
    return service(call("wf_station_connect"),
                   {{"ssid", ssid}, {"password", secret_text{password}}}, [&] {
                       if (ssid == nullptr) {
                           return result_argument;
                       }
                       locked_network()->wifi_ssid = ssid;
                       return 0;
                   });
}

void ak_lan_rev_active_task(void *) {
    // Traced at its start, since it runs until its thread is told to stop.
    bool works = false;
    service(call("ak_lan_rev_active_task"), {}, [&] { works = true; });
    // Waiting for no socket at all fails when the thread is told to stop.
    while (works && kelo_hal_net_select(0, nullptr, nullptr, nullptr, 60'000) == 0) {
    }
}

int32_t get_wf_gw_nw_status(uint8_t *status) {
    return service(call("get_wf_gw_nw_status"), {}, [&] {
        *status = locked_network()->station_status;
        return 0;
    });
}

int32_t get_ak_active_status(void) {
    return service(call("get_ak_active_status"), {},
                   [] { return locked_network()->airkiss_active; });
}

int32_t ak_lan_nwc_fin_inform(uint8_t random) {
    return service(call("ak_lan_nwc_fin_inform"), {{"random", random}}, [] {
        ++locked_network()->airkiss_informed;
        return 0;
    });
}

int32_t ak_lan_disc_init(const char *identity1, const char *identity2) {
    return service(call("ak_lan_disc_init"), {{"identity1", identity1}, {"identity2", identity2}},
                   [] {
                       locked_network()->airkiss_prepared = true;
                       return 0;
                   });
}

int32_t ak_lan_disc_pack_send(void) {
    return service(call("ak_lan_disc_pack_send"), {}, [] {
        const locked_network now;
        if (!now->airkiss_prepared) {
            return result_failed;
        }
        ++now->airkiss_sent;
        return 0;
    });
}
