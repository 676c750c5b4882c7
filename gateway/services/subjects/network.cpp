#include "subjects/network.h"

#include "calls/calls.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "store/records.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace gateway {
namespace {

kelo_mutex_t network_mutex; // guards network_now; the address source is called without it
network_state network_now;
std::function<std::string()> address_source;

std::string current_address() {
    const auto chosen = locked_network()->address_override;
    return chosen ? *chosen : address_source ? address_source() : std::string();
}

bool is_address(const std::string &text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

} // namespace

locked_network::locked_network() : guard_(network_mutex) {}

network_state *locked_network::operator->() const {
    return &network_now;
}

void network_init(std::function<std::string()> address) {
    make_mutex(network_mutex);
    address_source = std::move(address);
}

void network_shutdown() {
    network_now = {};
    address_source = nullptr;
    kelo_hal_mutex_release(std::exchange(network_mutex, nullptr));
}

bool is_network_up() {
    const bool is_up = locked_network()->is_up;
    return is_up && !current_address().empty();
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

void set_network_up(bool up) {
    locked_network()->is_up = up;
}

void set_address(std::optional<std::string> address) {
    if (address && !address->empty() && !is_address(*address)) {
        throw usage_error(fmt::format("'{}' is not an IPv4 address like 192.168.1.2", *address));
    }
    locked_network()->address_override = std::move(address);
}

void set_wifi_config_needed(bool needed) {
    locked_network()->wifi_config_needed = needed;
}

void set_wifi_mode(uint32_t mode) {
    locked_network()->wifi_mode = mode;
}

void set_airkiss(uint8_t station_status, int32_t active) {
    const locked_network now;
    now->station_status = station_status;
    now->airkiss_active = active;
}

void add_network_status(nlohmann::ordered_json &status) {
    const bool up = is_network_up();
    const std::string address = current_address();
    const locked_network now;
    status["network"] = {
        {"up", up}, {"ip", address}, {"wifi_config_needed", now->wifi_config_needed}};
    status["wifi"] = {{"mode", now->wifi_mode}, {"ssid", now->wifi_ssid}};
    status["airkiss"] = {{"status", now->station_status},
                         {"active", now->airkiss_active},
                         {"informed", now->airkiss_informed},
                         {"prepared", now->airkiss_prepared},
                         {"sent", now->airkiss_sent}};
}

} // namespace gateway
