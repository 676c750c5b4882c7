// What a scene is made of: data points of devices.
#include "subjects/data_points.h"
#include "subjects/scenes.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t actions_max = 1000;

} // namespace

std::string read_actions(const json_value &scene) {
    const json_value actions = scene.required("actions");
    actions.need_array();
    if (actions.json.size() > actions_max) {
        actions.refuse("has more than " + std::to_string(actions_max) + " actions");
    }
    auto read = ordered_json::array();
    for (std::size_t i = 0; i < actions.json.size(); ++i) {
        const json_value action = actions.element(i);
        const json_value dps = action.required("dps");
        (void)dps.data_points();
        read.push_back({{"cid", action.required("cid").id()}, {"dps", dps.json}});
    }
    return read.dump();
}

void apply_actions(const std::string &actions) {
    std::vector<data_point_change> changes;
    for (const ordered_json &action : ordered_json::parse(actions)) {
        changes.push_back({action["cid"], action["dps"].dump()});
    }
    change_data_points(changes, change_origin::many_commands);
}

} // namespace gateway
