// Network state, Wi-Fi and AirKiss of a gateway that has none of its own: what is told can be set,
// what is asked for is remembered and shown.
#include "subjects/network.h"

#include "calls/calls.h"
#include "calls/log.h"
#include "calls/results.h"
#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "platform/airkiss.h"
#include "platform/network.h"
#include "platform/owners.h"
#include "platform/socket.h"
#include "platform/wifi.h"

#include <arpa/inet.h>
#include <nlohmann/json.hpp>

#include <cstring>

namespace gateway {
namespace {

/** Work mode after the access point was shut down or a connection asked for. */
constexpr uint32_t wifi_mode_station = 1;

struct network_state {
    bool is_up = true;
    std::optional<std::string> address_override;
    bool wifi_config_needed = false;
    uint32_t wifi_mode = wifi_mode_station;
    std::string wifi_ssid; /**< last network that the station was told to connect to */
    uint8_t station_status = WF_STATION_CONNECTED_DHCP;
    int32_t airkiss_active = 1;
    bool airkiss_prepared = false;
    uint64_t airkiss_informed = 0; /**< how often a phone was told of a finished configuration */
    uint64_t airkiss_sent = 0;     /**< discovery packets */
};

kelo_mutex_t network_mutex; // guards network_now; the address source is called without it
network_state network_now;
std::function<std::string()> address_source;

/** Works on the state under its mutex. */
template <typename Work>
auto with_state(Work &&work) {
    const platform::held_mutex guard(network_mutex);
    return work(network_now);
}

std::string current_address() {
    const auto chosen = with_state([](network_state &now) { return now.address_override; });
    if (chosen) {
        return *chosen;
    }
    return address_source ? address_source() : std::string();
}

int32_t tell_address(gw_addr_t *address) {
    const std::string text = current_address();
    if (text.empty() || text.size() >= sizeof address->ip) {
        return result_failed;
    }
    *address = {};
    text.copy(address->ip, sizeof address->ip - 1);
    return 0;
}

bool is_address(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

} // namespace

void open_network(std::function<std::string()> address) {
    if (kelo_hal_mutex_create_init(&network_mutex) != 0) {
        throw refused("no mutex could be created");
    }
    address_source = std::move(address);
}

void close_network() {
    network_now = {};
    address_source = nullptr;
    kelo_hal_mutex_release(std::exchange(network_mutex, nullptr));
}

void add_network_status(nlohmann::ordered_json &status) {
    const bool up = (engr_get_gw_nw_status() & 0xFF) != 0;
    const std::string address = current_address();
    with_state([&](const network_state &now) {
        status["network"] = {
            {"up", up}, {"ip", address}, {"wifi_config_needed", now.wifi_config_needed}};
        status["wifi"] = {{"mode", now.wifi_mode}, {"ssid", now.wifi_ssid}};
        status["airkiss"] = {{"status", now.station_status},
                             {"active", now.airkiss_active},
                             {"informed", now.airkiss_informed},
                             {"prepared", now.airkiss_prepared},
                             {"sent", now.airkiss_sent}};
    });
}

void connect_station(const std::string &ssid) {
    with_state([&](network_state &now) { now.wifi_ssid = ssid; });
}

void begin_wifi_configuration() {
    with_state([](network_state &now) {
        now.wifi_mode = WF_WORK_MODE_ACCESS_POINT;
        now.wifi_config_needed = true;
        now.wifi_ssid.clear();
    });
}

bool end_wifi_configuration() {
    return with_state([](network_state &now) {
        now.wifi_config_needed = now.wifi_ssid.empty();
        return !now.wifi_config_needed;
    });
}

void set_network_up(bool up) {
    with_state([&](network_state &now) { now.is_up = up; });
}

void set_address(std::optional<std::string> address) {
    if (address && !address->empty() && !is_address(*address)) {
        throw usage_error("'" + *address + "' is not an IPv4 address like 192.168.1.2");
    }
    with_state([&](network_state &now) { now.address_override = std::move(address); });
}

void set_wifi_config_needed(bool needed) {
    with_state([&](network_state &now) { now.wifi_config_needed = needed; });
}

void set_wifi_mode(uint32_t mode) {
    with_state([&](network_state &now) { now.wifi_mode = mode; });
}

void set_airkiss(uint8_t station_status, int32_t active) {
    with_state([&](network_state &now) {
        now.station_status = station_status;
        now.airkiss_active = active;
    });
}

} // namespace gateway

using namespace gateway;

int32_t engr_get_wired_wifi_current_net(uint8_t *kind) {
    return service(call("engr_get_wired_wifi_current_net"), no_arguments, [&] {
        *kind = NETWORK_KIND_WIRED;
        return 0;
    });
}

uint32_t engr_get_gw_nw_status(void) {
    return with_state([](const network_state &now) { return now.is_up; }) &&
           !current_address().empty();
}

int32_t bnw_get_ip(gw_addr_t *address) {
    return service(call("bnw_get_ip"), no_arguments, [&] { return tell_address(address); });
}

uint32_t bnw_need_wifi_cfg(void) {
    return with_state([](const network_state &now) { return now.wifi_config_needed; });
}

int32_t wf_get_ip(int32_t interface_kind, gw_addr_t *address) {
    return service(call("wf_get_ip"), no_arguments, [&] {
        return interface_kind == WF_STATION ? tell_address(address) : result_argument;
    });
}

int32_t wf_wk_mode_get(uint32_t *mode) {
    return service(call("wf_wk_mode_get"), no_arguments, [&] {
        *mode = with_state([](const network_state &now) { return now.wifi_mode; });
        return 0;
    });
}

int32_t wf_ap_stop(void) {
    return service(call("wf_ap_stop"), no_arguments, [] {
        with_state([](network_state &now) {
            if (now.wifi_mode == WF_WORK_MODE_ACCESS_POINT) {
                now.wifi_mode = wifi_mode_station;
            }
        });
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

void ak_lan_rev_active_task(void *) {
    // The line of a task that runs until it is told to stop is wanted at its start.
    bool works = false;
    service(call("ak_lan_rev_active_task"), no_arguments, [&] { works = true; });
    // Waiting for no socket at all ends with a failure when this thread is told to stop.
    while (works && kelo_hal_net_select(0, nullptr, nullptr, nullptr, 60'000) == 0) {
    }
}

int32_t get_wf_gw_nw_status(uint8_t *status) {
    return service(call("get_wf_gw_nw_status"), no_arguments, [&] {
        *status = with_state([](const network_state &now) { return now.station_status; });
        return 0;
    });
}

int32_t get_ak_active_status(void) {
    return service(call("get_ak_active_status"), no_arguments, [] {
        return with_state([](const network_state &now) { return now.airkiss_active; });
    });
}

int32_t ak_lan_nwc_fin_inform(uint8_t random) {
    return service(
        call("ak_lan_nwc_fin_inform"), [&](call_arguments &list) { list.number("random", random); },
        [] {
            with_state([](network_state &now) { ++now.airkiss_informed; });
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
            with_state([](network_state &now) { now.airkiss_prepared = true; });
            return 0;
        });
}

int32_t ak_lan_disc_pack_send(void) {
    return service(call("ak_lan_disc_pack_send"), no_arguments, [] {
        return with_state([](network_state &now) {
            if (!now.airkiss_prepared) {
                return result_failed;
            }
            ++now.airkiss_sent;
            return 0;
        });
    });
}
