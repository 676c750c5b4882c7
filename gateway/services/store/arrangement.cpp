#include "store/arrangement.h"

#include "gateway_services/fields.h"
#include "store/products.h"
#include "store/store.h"
#include "support/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <set>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr std::size_t actions_max = 1000;

ordered_json groups_in(store &from) {
    auto all = ordered_json::array();
    statement found = from.prepare("SELECT gid, dev_id FROM group_member ORDER BY gid, position");
    while (found.next()) {
        if (all.empty() || all.back()["gid"] != found.text(0)) {
            all.push_back({{"gid", found.text(0)}, {"cids", ordered_json::array()}});
        }
        all.back()["cids"].push_back(found.text(1));
    }
    return all;
}

ordered_json scenes_in(store &from) {
    auto all = ordered_json::array();
    statement found = from.prepare("SELECT gid, sid, actions FROM scene ORDER BY gid, sid");
    while (found.next()) {
        all.push_back({{"gid", found.text(0)},
                       {"sid", found.text(1)},
                       {"actions", ordered_json::parse(found.text(2))}});
    }
    return all;
}

ordered_json panels_in(store &from) {
    auto all = ordered_json::array();
    statement found = from.prepare("SELECT dev_id, buttons FROM scene_panel");
    while (found.next()) {
        all.push_back({{"cid", found.text(0)}, {"buttons", ordered_json::parse(found.text(1))}});
    }
    return all;
}

ordered_json linkage_in(store &from) {
    const std::string modified = from.setting(linkage_time_setting);
    ordered_json all{
        {"modified", modified.empty() ? ordered_json() : ordered_json::parse(modified)},
        {"scenes", ordered_json::array()}};
    statement found = from.prepare("SELECT scene_id, name, actions FROM linkage_scene");
    while (found.next()) {
        all["scenes"].push_back({{"sceneId", found.text(0)},
                                 {"name", found.text(1)},
                                 {"actions", ordered_json::parse(found.text(2))}});
    }
    return all;
}

/**
 * Reads an id that no element before this one has.
 *
 * @param taken  those so far
 * @param group  in which the id is the only one; empty: it is so everywhere
 */
std::string read_id(const json_value &from, const char *name, std::set<std::string> &taken,
                    const std::string &group = {}) {
    const json_value id = from.required(name);
    std::string read = id.plain_text(name_bytes_max);
    if (!taken.insert(group + '"' + read).second) {
        id.refuse(fmt::format("'{}' is given twice", read));
    }
    return read;
}

} // namespace

std::vector<std::string> read_device_ids(const json_value &cids) {
    std::vector<std::string> read;
    for (const json_value &cid : cids.elements(1)) {
        read.push_back(cid.plain_text(name_bytes_max));
    }
    return read;
}

ordered_json read_actions(const json_value &scene) {
    auto read = ordered_json::array();
    for (const json_value &action : scene.required("actions").elements(0, actions_max)) {
        const json_value dps = action.required("dps");
        support::check_data_points(dps, text_value_bytes_max);
        read.push_back(
            {{"cid", action.required("cid").plain_text(name_bytes_max)}, {"dps", dps.json}});
    }
    return read;
}

ordered_json read_buttons(const json_value &buttons) {
    auto read = ordered_json::array();
    std::set<int64_t> numbers;
    for (const json_value &each : buttons.elements()) {
        const int64_t number = each.required("button").whole_number(1, 255);
        if (!numbers.insert(number).second) {
            each.refuse(fmt::format("button {} is given twice", number));
        }
        read.push_back({{"button", number},
                        {"sid", each.required("sid").plain_text(name_bytes_max)},
                        {"gid", each.required("gid").plain_text(name_bytes_max)}});
    }
    return read;
}

ordered_json read_linkage_scene(const json_value &scene) {
    return {{"sceneId", scene.required("sceneId").plain_text(name_bytes_max)},
            {"name", scene.has("name") ? scene.required("name").text() : ""},
            {"actions", read_actions(scene)}};
}

ordered_json read_groups(const json_value &from) {
    auto all = ordered_json::array();
    std::set<std::string> ids;
    for (const json_value &group : from.elements(0, groups_max)) {
        const std::string gid = read_id(group, "gid", ids);
        all.push_back({{"gid", gid}, {"cids", read_device_ids(group.required("cids"))}});
    }
    return all;
}

ordered_json read_scenes(const json_value &from) {
    auto all = ordered_json::array();
    std::set<std::string> ids;
    for (const json_value &scene : from.elements(0, scenes_max)) {
        const std::string gid = scene.required("gid").plain_text(name_bytes_max);
        const std::string sid = read_id(scene, "sid", ids, gid);
        all.push_back({{"gid", gid}, {"sid", sid}, {"actions", read_actions(scene)}});
    }
    return all;
}

ordered_json read_panels(const json_value &from) {
    auto all = ordered_json::array();
    std::set<std::string> ids;
    for (const json_value &panel : from.elements()) {
        const std::string cid = read_id(panel, "cid", ids);
        all.push_back({{"cid", cid}, {"buttons", read_buttons(panel.required("buttons"))}});
    }
    return all;
}

ordered_json read_linkage(const json_value &from) {
    ordered_json all{{"modified", from.required("modified").whole_number(INT32_MIN, INT32_MAX)},
                     {"scenes", ordered_json::array()}};
    std::set<std::string> ids;
    for (const json_value &scene : from.required("scenes").elements(0, scenes_max)) {
        (void)read_id(scene, "sceneId", ids);
        all["scenes"].push_back(read_linkage_scene(scene));
    }
    return all;
}

void store_arrangement(store &into, const ordered_json &all) {
    const auto members = [&all](const char *name) {
        return all.contains(name) ? all[name] : ordered_json::array();
    };
    const auto text = [](const ordered_json &from, const char *name) {
        return from[name].get<std::string>();
    };
    for (const ordered_json &group : members("groups")) {
        for (const ordered_json &cid : group["cids"]) {
            into.run("INSERT OR IGNORE INTO group_member(gid, dev_id) VALUES(?, ?)",
                     text(group, "gid"), cid.get<std::string>());
        }
    }
    for (const ordered_json &scene : members("scenes")) {
        into.run("INSERT INTO scene(gid, sid, actions) VALUES(?, ?, ?)", text(scene, "gid"),
                 text(scene, "sid"), scene["actions"].dump());
    }
    for (const ordered_json &panel : members("panels")) {
        into.run("INSERT INTO scene_panel(dev_id, buttons) VALUES(?, ?)", text(panel, "cid"),
                 panel["buttons"].dump());
    }
    if (all.contains("linkage")) {
        into.set_setting(linkage_time_setting, all["linkage"]["modified"].dump());
        for (const ordered_json &scene : all["linkage"]["scenes"]) {
            into.run("INSERT INTO linkage_scene(scene_id, name, actions) VALUES(?, ?, ?)",
                     text(scene, "sceneId"), text(scene, "name"), scene["actions"].dump());
        }
    }
}

ordered_json stored_arrangement(store &from) {
    return {{"groups", groups_in(from)},
            {"scenes", scenes_in(from)},
            {"panels", panels_in(from)},
            {"linkage", linkage_in(from)}};
}

} // namespace gateway
