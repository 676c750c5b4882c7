// gateway/gateway.h: the gateway record and its state, binding, and the installer's requests.
#include "gateway/gateway.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "store/records.h"
#include "subjects/configuration.h"
#include "subjects/devices.h"
#include "subjects/installer.h"
#include "subjects/upgrade.h"

using namespace gateway;

gw_cntl_t *engr_get_gw_cntl(void) {
    return &the_gateway().shared;
}

uint8_t engr_get_gw_ext_stat(void) {
    return service(call("engr_get_gw_ext_stat"), {}, [] { return extended_state().load(); });
}

void engr_set_gw_ext_stat(uint8_t new_state) {
    service(call("engr_set_gw_ext_stat"), {{"state", new_state}}, [&] {
        extended_state() = new_state;
        if (new_state == GW_EXT_STAT_UPGRADE_ENDED) {
            note_upgrade_end();
        }
    });
}

int32_t engr_gw_user_token_bind(const char *token) {
    return guarded_service(call("engr_gw_user_token_bind"), {{"token", secret_text{token}}},
                           [&] { bind_token(token); });
}

int32_t gw_wifi_modify_and_conn(const char *ssid, const char *password) {
    return guarded_service(call("gw_wifi_modify_and_conn"),
                           {{"ssid", ssid}, {"password", secret_text{password}}},
                           [&] { change_wifi(ssid, password == nullptr ? "" : password); });
}

int32_t engr_gw_unactive(const uint8_t *reset_type) {
    return service(call("engr_gw_unactive"),
                   {{"reset_type", reset_type == nullptr ? -1 : *reset_type}},
                   [&] { return reset_type == nullptr ? result_argument : guarded(deactivate); });
}

int32_t gw_engineer_add_sub_dev_to_list(const char *payload, uint32_t length) {
    return guarded_service(call("gw_engineer_add_sub_dev_to_list"),
                           {{"payload", payload_bytes{payload, length}}},
                           [&] { read_request(payload, length, bind_products); });
}

int32_t engr_gw_cntl_init_local(int32_t *channel) {
    return service(call("engr_gw_cntl_init_local"), {}, [&] {
        *channel = current_channel();
        return 0;
    });
}
