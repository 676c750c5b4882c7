// Reading of data points.
#include "lan_client/data_points.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace lan_client {

using nlohmann::json;

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
