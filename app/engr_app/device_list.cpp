// Reading of the device lists.
#include "device_list.h"

#include "failure.h"
#include "json_text.h"

#include <nlohmann/json.hpp>

namespace engr_app {
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

failure not_understood(const char *what, std::string_view payload) {
    constexpr std::size_t shown_bytes = 120;
    return {"bad_answer", std::string("the gateway's answer is no ") + what + ": " +
                              std::string(payload.substr(0, shown_bytes))};
}

} // namespace

lan_client::request device_list_request() {
    return {.type = lan_client::frame_type::dev_list};
}

lan_client::request line_state_request() {
    return {.type = lan_client::frame_type::dev_line_stat};
}

std::vector<device> parse_device_list(std::string_view payload) {
    const nlohmann::json object = parse_json(payload);
    if (!object.is_object() || !object.contains("products") || !object["products"].is_array()) {
        throw not_understood("list of devices", payload);
    }
    std::vector<device> devices;
    for (const nlohmann::json &product : object["products"]) {
        devices.push_back({member_text(product, "cid"), member_text(product, "pid")});
    }
    return devices;
}

line_state parse_line_state(std::string_view payload) {
    const nlohmann::json object = parse_json(payload);
    if (!object.is_object()) {
        throw not_understood("list of online and offline devices", payload);
    }
    return {texts(object, "online"), texts(object, "offline")};
}

bool says_no_devices(const lan_client::answer &answered) {
    return !answered.failure && answered.ret != 0 &&
           answered.payload == "online_dev or offline_dev is null";
}

} // namespace engr_app
