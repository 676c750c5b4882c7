#include "subjects/network.h"

#include "calls/calls.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/airkiss.h"
#include "platform/owners.h"
#include "platform/wifi.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

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
    uint64_t airkiss_informed = 0; /**< phones that were told of a finished configuration */
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

/** One member of the state. */
template <typename Value>
Value value_of(Value network_state::*member) {
    return with_state([&](const network_state &now) { return now.*member; });
}

std::string current_address() {
    const auto chosen = value_of(&network_state::address_override);
    return chosen ? *chosen : address_source ? address_source() : std::string();
}

bool is_address(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

} // namespace

void network_init(std::function<std::string()> address) {
    if (kelo_hal_mutex_create_init(&network_mutex) != 0) {
        throw refused("no mutex could be created");
    }
    address_source = std::move(address);
}

void network_shutdown() {
    network_now = {};
    address_source = nullptr;
    kelo_hal_mutex_release(std::exchange(network_mutex, nullptr));
}

bool is_network_up() {
    return value_of(&network_state::is_up) && !current_address().empty();
}

int32_t write_address(gw_addr_t &address) {
    const std::string text = current_address();
    if (text.empty() || text.size() >= sizeof address.ip) {
        return result_failed;
    }
    address = {};
    text.copy(address.ip, sizeof address.ip - 1);
    return 0;
}

bool is_wifi_config_needed() {
    return value_of(&network_state::wifi_config_needed);
}

uint32_t wifi_mode() {
    return value_of(&network_state::wifi_mode);
}

void stop_access_point() {
    with_state([](network_state &now) {
        if (now.wifi_mode == WF_WORK_MODE_ACCESS_POINT) {
            now.wifi_mode = wifi_mode_station;
        }
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

uint8_t station_status() {
    return value_of(&network_state::station_status);
}

int32_t airkiss_active() {
    return value_of(&network_state::airkiss_active);
}

void count_airkiss_information() {
    with_state([](network_state &now) { ++now.airkiss_informed; });
}

void prepare_airkiss_discovery() {
    with_state([](network_state &now) { now.airkiss_prepared = true; });
}

int32_t send_airkiss_discovery() {
    return with_state([](network_state &now) {
        if (!now.airkiss_prepared) {
            return result_failed;
        }
        ++now.airkiss_sent;
        return 0;
    });
}

void set_network_up(bool up) {
    with_state([&](network_state &now) { now.is_up = up; });
}

void set_address(std::optional<std::string> address) {
    if (address && !address->empty() && !is_address(*address)) {
        throw usage_error(fmt::format("'{}' is not an IPv4 address like 192.168.1.2", *address));
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

void add_network_status(nlohmann::ordered_json &status) {
    const bool up = is_network_up();
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

} // namespace gateway
