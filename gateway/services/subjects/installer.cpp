#include "subjects/installer.h"

#include "calls/activity.h"
#include "gateway_services/error.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/configuration.h"
#include "subjects/joining.h"
#include "subjects/network.h"

#include <fmt/format.h>
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
        throw usage_error(fmt::format("a token has 1 to {} printable characters", token_bytes_max));
    }
}

} // namespace

void bind_token(std::string_view token) {
    check_token(token);
    change_setting(token_setting, token);
    tell_deed("bound a token");
}

void store_wifi(const std::string &ssid, const std::string &password,
                const std::optional<std::string> &token) {
    if (ssid.empty()) {
        throw usage_error("the name of the Wi-Fi network is empty");
    }
    if (token) {
        check_token(*token);
    }
    change_gateway_fields({{&need_field(gateway_fields(), "wf_ssid"), ssid},
                           {&need_field(gateway_fields(), "wf_passwd"), password}},
                          [&] {
                              if (token) {
                                  the_store().set_setting(token_setting, *token);
                              }
                          });
}

void change_wifi(const std::string &ssid, const std::string &password) {
    store_wifi(ssid, password, std::nullopt);
    locked_network()->wifi_ssid = ssid;
    tell_deed(fmt::format("moved the gateway to Wi-Fi network {}", ssid));
}

void end_engineering() {
    change_setting(engineering_ended_setting, "1");
    tell_deed("ended engineering");
}

void deactivate() {
    lasting_change change;
    the_store().erase_setting(token_setting);
    the_store().erase_setting(engineering_ended_setting);
    forget_engineering();
    the_store().set_gateway_field(need_field(gateway_fields(), "active_stat"),
                                  int64_t{GW_DEACTIVATED});
    change.commit();
    close_joining();
    tell_deed("deactivated the gateway");
}

void add_installer_status(nlohmann::ordered_json &status) {
    status["token_bound"] = !the_store().setting(token_setting).empty();
    status["engineering_ended"] = !the_store().setting(engineering_ended_setting).empty();
}

} // namespace gateway
