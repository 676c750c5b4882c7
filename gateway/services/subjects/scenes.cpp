#include "subjects/scenes.h"

#include "calls/activity.h"
#include "calls/requests.h"
#include "gateway_services/error.h"
#include "store/arrangement.h"
#include "store/products.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/data_points.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <map>
#include <optional>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr uint32_t scene_operation_frame = 244;
constexpr uint32_t scene_panel_frame = 248;

// Guarded by change_mutex.
ordered_json last_scene;
/** Actions of the loaded linkage set by scene id. */
std::map<std::string, std::string> loaded_scenes;

/**
 * Applies stored actions.
 *
 * @param scene  names the scene; the status shows it as the last one
 */
void apply_actions(const std::string &actions, const ordered_json &scene) {
    std::vector<data_point_change> changes;
    for (const ordered_json &action : ordered_json::parse(actions)) {
        changes.push_back({action["cid"], action["dps"].dump()});
    }
    change_data_points(changes, change_origin::many_commands);
    const platform::held_mutex change(change_mutex());
    last_scene = scene;
}

/** Actions of a stored scene, none when there is no such scene; change_mutex is held. */
std::optional<std::string> scene_actions(std::string_view gid, std::string_view sid) {
    statement found = the_store().prepare("SELECT actions FROM scene WHERE gid=? AND sid=?");
    if (!found.bind(1, gid).bind(2, sid).next()) {
        return std::nullopt;
    }
    return found.text(0);
}

[[noreturn]] void refuse_unknown_scene(const std::string &gid, const std::string &sid) {
    throw refused(fmt::format("unknown scene {} of group {}", sid, gid));
}

void save_scene(const std::string &gid, const std::string &sid, const std::string &actions) {
    for (const ordered_json &action : ordered_json::parse(actions)) {
        const device_record &device = need_device(action["cid"].get_ref<const std::string &>());
        check_product_values(the_products(), product_of(device), action["dps"], setter::app);
    }
    the_store().run("INSERT OR REPLACE INTO scene(gid, sid, actions) VALUES(?, ?, ?)", gid, sid,
                    actions);
    the_store().check_limit("SELECT count(*) FROM scene", scenes_max, "scenes");
}

void delete_scene(const std::string &gid, const std::string &sid) {
    if (the_store().run("DELETE FROM scene WHERE gid=? AND sid=?", gid, sid) == 0) {
        refuse_unknown_scene(gid, sid);
    }
}

operation_work read_scene_operation(const json_value &request, ordered_json &outcome) {
    const std::string sid = request.required("sid").plain_text(name_bytes_max);
    const std::string gid = request.required("gid").plain_text(name_bytes_max);
    const json_value op = request.required("op");
    const std::string name = op.text();
    if (name != "save" && name != "delete") {
        op.refuse("is neither save nor delete");
    }
    const std::string actions = name == "save" ? read_actions(request).dump() : "";
    outcome = {{"sid", sid}, {"gid", gid}, {"op", name}};
    return [sid, gid, name, actions](ordered_json &) {
        lasting_change change;
        if (name == "save") {
            save_scene(gid, sid, actions);
        } else {
            delete_scene(gid, sid);
        }
        change.commit();
        tell_deed(
            fmt::format("{} scene {} of group {}", name == "save" ? "saved" : "deleted", sid, gid));
    };
}

operation_work read_panel_command(const json_value &request, ordered_json &outcome) {
    const std::string cid = request.required("cid").plain_text(name_bytes_max);
    const ordered_json buttons = read_buttons(request.required("buttons"));
    outcome = {{"cid", cid}};
    return [cid, buttons](ordered_json &done) {
        lasting_change change;
        need_listed_device(cid);
        for (const ordered_json &button : buttons) {
            const std::string gid = button["gid"];
            const std::string sid = button["sid"];
            if (!scene_actions(gid, sid)) {
                refuse_unknown_scene(gid, sid);
            }
        }
        remove_panel(cid);
        if (!buttons.empty()) {
            the_store().run("INSERT INTO scene_panel(dev_id, buttons) VALUES(?, ?)", cid,
                            buttons.dump());
        }
        change.commit();
        done["buttons"] = buttons.size();
        tell_deed(fmt::format("assigned {} button{} of panel {}", buttons.size(),
                              buttons.size() == 1 ? "" : "s", cid));
    };
}

/** Removes the stored set; within a lasting change. */
void erase_linkage() {
    the_store().run("DELETE FROM linkage_scene");
    the_store().erase_setting(linkage_time_setting);
}

void insert_scene(statement &insert, const json_value &scene) {
    const ordered_json read = read_linkage_scene(scene);
    const auto id = read["sceneId"].get<std::string>();
    if (insert.bind(1, id)
            .bind(2, read["name"].get<std::string>())
            .bind(3, read["actions"].dump())
            .run() == 0) {
        scene.required("sceneId").refuse(fmt::format("'{}' is given twice", id));
    }
}

} // namespace

void load_linkage() {
    const platform::held_mutex change(change_mutex());
    std::map<std::string, std::string> stored;
    statement found = the_store().prepare("SELECT scene_id, actions FROM linkage_scene");
    while (found.next()) {
        stored[found.text(0)] = found.text(1);
    }
    loaded_scenes = std::move(stored);
}

void scenes_shutdown() {
    last_scene = nullptr;
}

int32_t operate_scene(const cJSON *request) {
    return carry_out_operation(scene_operation_frame, request, read_scene_operation);
}

int32_t assign_panel(const cJSON *request) {
    return carry_out_operation(scene_panel_frame, request, read_panel_command);
}

void remove_panel(std::string_view dev_id) {
    the_store().run("DELETE FROM scene_panel WHERE dev_id=?", dev_id);
}

void execute_scene(const std::string &gid, const std::string &sid) {
    std::optional<std::string> actions;
    {
        const platform::held_mutex change(change_mutex());
        actions = scene_actions(gid, sid);
    }
    if (!actions) {
        refuse_unknown_scene(gid, sid);
    }
    apply_actions(*actions, {{"gid", gid}, {"sid", sid}});
    tell_deed(fmt::format("ran scene {} of group {}", sid, gid));
}

void unload_linkage() {
    const platform::held_mutex change(change_mutex());
    loaded_scenes.clear();
}

void reset_linkage() {
    lasting_change change;
    erase_linkage();
    change.commit();
    loaded_scenes.clear(); // what is executed is what is stored, whatever comes next
}

bool is_new_linkage(int32_t modified) {
    const platform::held_mutex change(change_mutex());
    return the_store().setting(linkage_time_setting) != std::to_string(modified);
}

void save_linkage(int32_t total, int32_t modified, const json_value &request) {
    const json_value list = request.required("scenes");
    const std::vector<json_value> scenes = list.elements(0, scenes_max);
    if (total < 0 || scenes.size() != static_cast<std::size_t>(total)) {
        list.refuse(fmt::format("has {} scenes, but totalCount is {}", scenes.size(), total));
    }
    lasting_change change;
    erase_linkage();
    statement insert = the_store().prepare(
        "INSERT OR IGNORE INTO linkage_scene(scene_id, name, actions) VALUES(?, ?, ?)");
    for (const json_value &scene : scenes) {
        insert_scene(insert, scene);
    }
    the_store().set_setting(linkage_time_setting, std::to_string(modified));
    change.commit();
    tell_deed(fmt::format("stored the linkage set: {} scene{}", scenes.size(),
                          scenes.size() == 1 ? "" : "s"));
}

void execute_linkage_scene(const std::string &scene_id) {
    std::string actions;
    {
        const platform::held_mutex change(change_mutex());
        const auto found = loaded_scenes.find(scene_id);
        if (found == loaded_scenes.end()) {
            throw refused(fmt::format("unknown linkage scene {}", scene_id));
        }
        actions = found->second;
    }
    apply_actions(actions, {{"sceneId", scene_id}});
    tell_deed(fmt::format("ran linkage scene {}", scene_id));
}

void add_scenes_status(ordered_json &status) {
    const auto add_counts = [&](const char *member, const char *sql) {
        ordered_json &counts = status[member] = ordered_json::object();
        statement found = the_store().prepare(sql);
        while (found.next()) {
            counts[found.text(0)] = found.number(1);
        }
    };
    add_counts("scenes", "SELECT gid, count(*) FROM scene GROUP BY gid");
    add_counts("scene_panels", "SELECT dev_id, json_array_length(buttons) FROM scene_panel");
    status["last_scene"] = last_scene;
    const std::string modified = the_store().setting(linkage_time_setting);
    status["linkage"] = {
        {"scenes", the_store().number("SELECT count(*) FROM linkage_scene")},
        {"modified", modified.empty() ? ordered_json() : ordered_json::parse(modified)},
        {"loaded", loaded_scenes.size()}};
}

} // namespace gateway
