#include "subjects/linkage.h"

#include "calls/requests.h"
#include "gateway_services/error.h"
#include "store/changes.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/scenes.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <map>

namespace gateway {
namespace {

using nlohmann::ordered_json;
using support::json_value;

constexpr std::string_view linkage_time_setting = "linkage_modified";

/** Actions by scene id, as executed; guarded by change_mutex. */
std::map<std::string, std::string> loaded_scenes;

/** Removes the stored set; within a lasting change. */
void erase_linkage() {
    run_sql(the_store().database(), "DELETE FROM linkage_scene");
    the_store().erase_setting(linkage_time_setting);
}

void insert_scene(statement &insert, const json_value &scene) {
    const json_value scene_id = scene.required("sceneId");
    const std::string id = scene_id.plain_text(name_bytes_max);
    const std::string name = scene.has("name") ? scene.required("name").text() : "";
    const std::string actions = read_actions(scene);
    if (insert.bind(1, id).bind(2, name).bind(3, actions).run() == 0) {
        scene_id.refuse(fmt::format("'{}' is given twice", id));
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
}

void add_linkage_status(ordered_json &status) {
    const std::string modified = the_store().setting(linkage_time_setting);
    status["linkage"] = {
        {"scenes", the_store().prepare("SELECT count(*) FROM linkage_scene").run_for_number()},
        {"modified", modified.empty() ? ordered_json() : ordered_json::parse(modified)},
        {"loaded", loaded_scenes.size()}};
}

} // namespace gateway
