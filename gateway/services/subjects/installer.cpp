#include "subjects/installer.h"

#include "gateway/gateway.h"

#include "calls/calls.h"
#include "calls/results.h"
#include "contracts/callbacks.h"
#include "gateway_services/error.h"
#include "store/changes.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/configuration.h"
#include "subjects/joining.h"
#include "subjects/network.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace gateway {
namespace {

constexpr std::string_view engineering_ended_setting = "engineering_ended";
constexpr std::string_view token_setting = "token";
constexpr std::size_t token_bytes_max = 64;

void check_token(std::string_view token) {
    const bool is_printable =
        std::all_of(token.begin(), token.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
    if (token.empty() || token.size() > token_bytes_max || !is_printable) {
        throw usage_error("a token has 1 to " + std::to_string(token_bytes_max) +
                          " printable characters");
    }
}

void bind_token(std::string_view token) {
    check_token(token);
    lasting_change change;
    the_store().set_setting(token_setting, token);
    change.commit();
}

void move_to_wifi(const std::string &ssid, const std::string &password) {
    store_wifi(ssid, password, std::nullopt);
    connect_station(ssid);
}

/** Forgets the installer. Who deactivates sets the record's active_stat. */
void forget_installation() {
    lasting_change change;
    the_store().erase_setting(token_setting);
    the_store().erase_setting(engineering_ended_setting);
    forget_engineering();
    the_store().set_gateway_field(*find_field(gateway_fields(), "active_stat"),
                                  int64_t{GW_DEACTIVATED});
    change.commit();
    close_joining();
}

} // namespace

void store_wifi(const std::string &ssid, const std::string &password,
                const std::optional<std::string> &token) {
    const field &ssid_field = *find_field(gateway_fields(), "wf_ssid");
    const field &password_field = *find_field(gateway_fields(), "wf_passwd");
    if (ssid.empty()) {
        throw usage_error("the name of the Wi-Fi network is empty");
    }
    check_value(ssid_field, ssid);
    check_value(password_field, password);
    if (token) {
        check_token(*token);
    }
    lasting_change change;
    the_store().set_gateway_field(ssid_field, ssid);
    the_store().set_gateway_field(password_field, password);
    if (token) {
        the_store().set_setting(token_setting, *token);
    }
    change.commit();
    const platform::held_mutex guard(the_gateway().shared.field_mutex);
    write_field(&the_gateway(), ssid_field, ssid);
    write_field(&the_gateway(), password_field, password);
}

void call_engr_end_notify() {
    service(call("engr_end_notify"), no_arguments, [] {
        guarded([] {
            lasting_change change;
            the_store().set_setting(engineering_ended_setting, "1");
            change.commit();
        });
    });
}

void add_installation_status(nlohmann::ordered_json &status) {
    status["token_bound"] = !the_store().setting(token_setting).empty();
    status["engineering_ended"] = !the_store().setting(engineering_ended_setting).empty();
}

} // namespace gateway

using namespace gateway;

int32_t engr_gw_user_token_bind(const char *token) {
    return service(
        call("engr_gw_user_token_bind"), [&](call_arguments &list) { list.secret("token", token); },
        [&] { return guarded([&] { bind_token(token); }); });
}

int32_t gw_wifi_modify_and_conn(const char *ssid, const char *password) {
    return service(
        call("gw_wifi_modify_and_conn"),
        [&](call_arguments &list) { list.text("ssid", ssid).secret("password", password); },
        [&] { return guarded([&] { move_to_wifi(ssid, password == nullptr ? "" : password); }); });
}

int32_t engr_gw_unactive(const uint8_t *reset_type) {
    return service(
        call("engr_gw_unactive"),
        [&](call_arguments &list) {
            list.number("reset_type", reset_type == nullptr ? -1 : *reset_type);
        },
        [&] { return reset_type == nullptr ? result_argument : guarded(forget_installation); });
}
