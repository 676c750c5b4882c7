// platform/airkiss.h: the AirKiss layer.
#include "platform/airkiss.h"

#include "calls/calls.h"
#include "platform/socket.h"
#include "subjects/network.h"

using namespace gateway;

void ak_lan_rev_active_task(void *) {
    // Traced at its start, since it runs until its thread is told to stop.
    bool works = false;
    service(call("ak_lan_rev_active_task"), [&] { works = true; });
    // Waiting for no socket at all fails when the thread is told to stop.
    while (works && kelo_hal_net_select(0, nullptr, nullptr, nullptr, 60'000) == 0) {
    }
}

int32_t get_wf_gw_nw_status(uint8_t *status) {
    return service(call("get_wf_gw_nw_status"), [&] {
        *status = station_status();
        return 0;
    });
}

int32_t get_ak_active_status(void) {
    return service(call("get_ak_active_status"), airkiss_active);
}

int32_t ak_lan_nwc_fin_inform(uint8_t random) {
    return service(
        call("ak_lan_nwc_fin_inform"), [&](call_arguments &list) { list.number("random", random); },
        [] {
            count_airkiss_information();
            return 0;
        });
}

int32_t ak_lan_disc_init(const char *identity1, const char *identity2) {
    return service(
        call("ak_lan_disc_init"),
        [&](call_arguments &list) {
            list.text("identity1", identity1).text("identity2", identity2);
        },
        [] {
            prepare_airkiss_discovery();
            return 0;
        });
}

int32_t ak_lan_disc_pack_send(void) {
    return service(call("ak_lan_disc_pack_send"), send_airkiss_discovery);
}
