/* Discovery in WeChat mode. */
#include "airkiss_discovery.h"

#include "base/agent_log.h"
#include "base/gateway_fields.h"
#include "gateway/gateway.h"
#include "platform/airkiss.h"

namespace {

/** Whether the discovery packet has been initialised; once for the life of the process. */
bool lan_disc_pack_init = false;

bool is_connected(uint8_t status) {
    return status == WF_STATION_CONNECTED || status == WF_STATION_CONNECTED_DHCP ||
           status == WF_STATION_CONNECTED_STATIC;
}

bool station_is_connected() {
    uint8_t status = 0;
    const int32_t op_ret = get_wf_gw_nw_status(&status);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "get_wf_gw_nw_status error:%d", op_ret);
        return false;
    }
    if (!is_connected(status)) {
        LAN_LOG(LOG_LEVEL_FAILURE, "the station do't connect ap,status:%d", status);
        return false;
    }
    return true;
}

void inform_of_finish() {
    const uint8_t random = gateway_field(&gw_cntl_t::ak_random);
    LAN_LOG(LOG_LEVEL_TRACE, "Send Random %d", random);
    const int32_t op_ret = ak_lan_nwc_fin_inform(random);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "ak_lan_nwc_fin_inform error:%d", op_ret);
    }
}

bool ensure_packet() {
    if (lan_disc_pack_init) {
        return true;
    }
    const gateway_text identity1(&gw_cntl_t::ak_ident1);
    const gateway_text identity2(&gw_cntl_t::ak_ident2);
    const int32_t op_ret = ak_lan_disc_init(identity1.text(), identity2.text());
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "ak_lan_disc_init error:%d", op_ret);
        return false;
    }
    lan_disc_pack_init = true;
    return true;
}

} // namespace

void __airkiss_lan_discovery() {
    if (!station_is_connected()) {
        return;
    }
    if (get_ak_active_status() != 1) {
        inform_of_finish();
        return;
    }
    if (!ensure_packet()) {
        return;
    }
    const int32_t op_ret = ak_lan_disc_pack_send();
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "ak_lan_disc_pack_send error:%d", op_ret);
    }
}
