// Reading of data points.
#include "lan_client/data_points.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace lan_client {

using nlohmann::json;

namespace {

bool is_refused_with_text(const answer &answered, std::string_view text) {
    return !answered.failure && answered.ret != 0 && answered.payload == text;
}

} // namespace

json known_points_query(const std::string &device_id) {
    return device_id.empty() ? json::object() : json{{"cid", device_id}};
}

json device_command(const std::string &device_id, const json &data_points) {
    json body = known_points_query(device_id);
    body["dps"] = data_points;
    return body;
}

json report_query(const std::string &device_id, const std::vector<int> &numbers) {
    json body = known_points_query(device_id);
    if (!numbers.empty()) {
        body["dpId"] = numbers.size() == 1 ? json(numbers.front()) : json(numbers);
    }
    return body;
}

bool says_unknown_device(const answer &answered) {
    return is_refused_with_text(answered, "devid not found");
}

bool says_no_data_points(const answer &answered) {
    return is_refused_with_text(answered, "json obj data unvalid");
}

json parse_device_state(std::string_view payload) {
    json state = parse_json(payload);
    if (!state.is_object() || !state.contains("dps") || !state["dps"].is_object()) {
        return nullptr;
    }
    const char *id = state.contains("cid") ? "cid" : "devId";
    return {{"cid", member_text(state, id)}, {"dps", state["dps"]}};
}

bool contains(const report &report, const std::string &device_id,
              const std::vector<std::string> &data_points) {
    if (report.type != frame_type::dp_report || !report.readable) {
        return false;
    }
    const json state = parse_device_state(report.payload);
    return state.is_object() && state["cid"] == device_id &&
           std::ranges::all_of(data_points, [&state](const std::string &point) {
               return state["dps"].contains(point);
           });
}

} // namespace lan_client
