// Reading of device lists.
#include "lan_client/devices.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "lan_client/limits.h"

#include <unordered_map>
#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client {
request device_list_request() {
    return {.type = frame_type::dev_list};
}

request line_state_request() {
    return {.type = frame_type::dev_line_stat};
}

std::optional<std::vector<device>> read_device_list(std::string_view payload) {
    std::vector<device> devices;
    const nlohmann::json object =
        parse_json(payload, [&devices](const std::string &list, nlohmann::json &&product) {
            if (list == "products") {
                devices.push_back({member_text(product, "cid"), member_text(product, "pid")});
            }
        });
    if (!object.is_object() || !object.contains("products") || !object["products"].is_array() ||
        devices.size() > max_devices) {
        return std::nullopt;
    }
    return devices;
}

std::optional<line_state> read_line_state(std::string_view payload) {
    line_state states;
    const nlohmann::json object =
        parse_json(payload, [&states](const std::string &list, nlohmann::json &&id) {
            if (id.is_string() && (list == "online" || list == "offline")) {
                auto &of_state = list == "online" ? states.online : states.offline;
                of_state.push_back(std::move(id.get_ref<std::string &>()));
            }
        });
    return object.is_object() ? std::optional(std::move(states)) : std::nullopt;
}

bool says_no_devices(const answer &answered) {
    return !answered.failure && answered.ret != 0 &&
           answered.payload == "online_dev or offline_dev is null";
}

std::vector<device_with_state> with_states(std::vector<device> devices, const line_state &states) {
    std::unordered_map<std::string_view, bool> is_online;
    is_online.reserve(states.online.size() + states.offline.size());
    for (const std::string &id : states.online) {
        is_online.emplace(id, true);
    }
    for (const std::string &id : states.offline) {
        is_online.emplace(id, false); // unless it is in the other list as well
    }
    std::vector<device_with_state> all;
    all.reserve(devices.size());
    for (device &one : devices) {
        const auto known = is_online.find(one.id);
        const auto online = known == is_online.end() ? std::nullopt : std::optional(known->second);
        all.push_back({std::move(one.id), std::move(one.product_id), online});
    }
    return all;
}

nlohmann::json as_json(std::vector<device_with_state> devices) {
    nlohmann::json all = nlohmann::json::array();
    for (device_with_state &one : devices) {
        nlohmann::json &entry = all.emplace_back(nlohmann::json::object());
        entry["cid"] = std::move(one.id);
        entry["online"] = one.online ? nlohmann::json(*one.online) : nlohmann::json();
        entry["pid"] = std::move(one.product_id);
    }
    return all;
}

} // namespace lan_client
