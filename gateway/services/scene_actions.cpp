// What a scene is made of: data points of devices.
#include "data_points.h"
#include "gateway_services/error.h"
#include "log.h"
#include "records.h"
#include "scenes.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::ordered_json;

constexpr std::size_t actions_max = 1000;

} // namespace

std::string read_actions(const json_value &scene) {
    const json_value actions = scene.required("actions");
    actions.need_array();
    if (actions.json.size() > actions_max)
        actions.refuse("has more than " + std::to_string(actions_max) + " actions");
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
    const ordered_json stored = ordered_json::parse(actions);
    std::vector<data_point_change> changes;
    for (const ordered_json &action : stored) {
        const auto &cid = action["cid"].get_ref<const std::string &>();
        if (find_device(cid) != nullptr)
            changes.push_back({cid, action["dps"].dump()});
        else
            GATEWAY_LOG(LOG_LEVEL_WARNING, "device %s of a scene is unknown", cid.c_str());
    }
    if (changes.empty() && !stored.empty())
        throw refused("no device of the scene is left");
    change_data_points(changes);
}

} // namespace gateway
