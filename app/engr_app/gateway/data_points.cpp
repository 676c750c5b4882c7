// Checking and reading of data points.
#include "gateway/data_points.h"

#include "base/json_text.h"
#include "lan_client/frame_types.h"

#include <algorithm>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {

using nlohmann::json;

std::string data_points_text(const json &data_points) {
    std::string text;
    for (const auto &[name, value] : data_points.items()) {
        text += fmt::format("{}{} = {}", text.empty() ? "" : ", ", name, one_line(value));
    }
    return text;
}

json parse_device_state(std::string_view payload) {
    json state = parse_json(payload);
    if (!state.is_object() || !state.contains("dps") || !state["dps"].is_object()) {
        return nullptr;
    }
    const char *id = state.contains("cid") ? "cid" : "devId";
    return {{"cid", member_text(state, id)}, {"dps", state["dps"]}};
}

bool contains(const lan_client::report &report, const std::string &device_id,
              const std::vector<std::string> &data_points) {
    if (report.type != lan_client::frame_type::dp_report || !report.readable) {
        return false;
    }
    const json state = parse_device_state(report.payload);
    return state.is_object() && state["cid"] == device_id &&
           std::ranges::all_of(data_points, [&state](const std::string &point) {
               return state["dps"].contains(point);
           });
}

} // namespace engr_app
