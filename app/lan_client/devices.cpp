// Reading of device lists.
#include "lan_client/devices.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "lan_client/limits.h"

#include <unordered_set>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

std::vector<std::string> texts(const nlohmann::json &object, const char *name) {
    std::vector<std::string> all;
    const auto list = object.find(name);
    if (list == object.end() || !list->is_array()) {
        return all;
    }
    for (const nlohmann::json &entry : *list) {
        if (entry.is_string()) {
            all.push_back(entry.get<std::string>());
        }
    }
    return all;
}

} // namespace

request device_list_request() {
    return {.type = frame_type::dev_list};
}

request line_state_request() {
    return {.type = frame_type::dev_line_stat};
}

std::optional<std::vector<device>> read_device_list(std::string_view payload) {
    const nlohmann::json object = parse_json(payload);
    if (!object.is_object() || !object.contains("products") || !object["products"].is_array() ||
        object["products"].size() > max_devices) {
        return std::nullopt;
    }
    std::vector<device> devices;
    for (const nlohmann::json &product : object["products"]) {
        devices.push_back({member_text(product, "cid"), member_text(product, "pid")});
    }
    return devices;
}

std::optional<line_state> read_line_state(std::string_view payload) {
    const nlohmann::json object = parse_json(payload);
    if (!object.is_object()) {
        return std::nullopt;
    }
    return line_state{texts(object, "online"), texts(object, "offline")};
}

bool says_no_devices(const answer &answered) {
    return !answered.failure && answered.ret != 0 &&
           answered.payload == "online_dev or offline_dev is null";
}

std::vector<device_with_state> with_states(const std::vector<device> &devices,
                                           const line_state &states) {
    const std::unordered_set<std::string> online(states.online.begin(), states.online.end());
    const std::unordered_set<std::string> offline(states.offline.begin(), states.offline.end());
    std::vector<device_with_state> all;
    for (const device &one : devices) {
        all.push_back({one.id, one.product_id, {}});
        if (online.contains(one.id) || offline.contains(one.id)) {
            all.back().online = online.contains(one.id);
        }
    }
    return all;
}

} // namespace lan_client
