// The scene-linkage set: stored as a whole with its time, executed from the copy that was loaded.
#include "gateway/scene.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "store/changes.h"
#include "store/records.h"
#include "store/store.h"
#include "subjects/scenes.h"

#include <nlohmann/json.hpp>

#include <map>

namespace gateway {
namespace {

using nlohmann::ordered_json;

constexpr std::string_view linkage_time_setting = "linkage_modified";
constexpr int32_t is_changed = 1;

/** Actions by scene id, as executed; guarded by change_mutex. */
std::map<std::string, std::string> loaded_scenes;

/** Removes the stored set; within a lasting change. */
void erase_linkage() {
    run_sql(the_store().database(), "DELETE FROM linkage_scene");
    the_store().erase_setting(linkage_time_setting);
}

void save_linkage(int32_t total, int32_t modified, const json_value &request) {
    const json_value scenes = request.required("scenes");
    scenes.need_array();
    if (scenes.json.size() > scenes_max) {
        scenes.refuse("has more than " + std::to_string(scenes_max) + " scenes");
    }
    if (total < 0 || scenes.json.size() != static_cast<std::size_t>(total)) {
        scenes.refuse("has " + std::to_string(scenes.json.size()) + " scenes, but totalCount is " +
                      std::to_string(total));
    }
    lasting_change change;
    erase_linkage();
    statement insert = the_store().prepare(
        "INSERT OR IGNORE INTO linkage_scene(scene_id, name, actions) VALUES(?, ?, ?)");
    for (std::size_t i = 0; i < scenes.json.size(); ++i) {
        const json_value scene = scenes.element(i);
        const std::string scene_id = scene.required("sceneId").id();
        const std::string name =
            scene.find("name") != nullptr ? scene.required("name").text() : std::string();
        const std::string actions = read_actions(scene);
        if (insert.bind(1, scene_id).bind(2, name).bind(3, actions).run() == 0) {
            scene.required("sceneId").refuse("'" + scene_id + "' is given twice");
        }
    }
    the_store().set_setting(linkage_time_setting, std::to_string(modified));
    change.commit();
}

/** Replaces the loaded scenes; change_mutex is held, or nobody else runs. */
void load_linkage() {
    std::map<std::string, std::string> stored;
    statement found = the_store().prepare("SELECT scene_id, actions FROM linkage_scene");
    while (found.next()) {
        stored[found.text(0)] = found.text(1);
    }
    loaded_scenes = std::move(stored);
}

void execute_linkage_scene(const std::string &scene_id) {
    std::string actions;
    {
        const platform::held_mutex change(change_mutex());
        const auto found = loaded_scenes.find(scene_id);
        if (found == loaded_scenes.end()) {
            throw refused("unknown linkage scene " + scene_id);
        }
        actions = found->second;
    }
    apply_actions(actions);
    note_last_scene({{"sceneId", scene_id}});
}

} // namespace

void open_linkage() {
    load_linkage();
}

void add_linkage_status(ordered_json &status) {
    const std::string modified = the_store().setting(linkage_time_setting);
    status["linkage"] = {
        {"scenes", the_store().prepare("SELECT count(*) FROM linkage_scene").run_for_number()},
        {"modified", modified.empty() ? ordered_json() : ordered_json::parse(modified)},
        {"loaded", loaded_scenes.size()}};
}

} // namespace gateway

using namespace gateway;

int32_t scene_linkage_scene_exe(const char *scene_id) {
    return service(
        call("scene_linkage_scene_exe"),
        [&](call_arguments &list) { list.text("scene_id", scene_id); },
        [&] { return guarded([&] { execute_linkage_scene(scene_id); }); });
}

int32_t engr_check_modify_time_changed(int32_t modified) {
    return service(
        call("engr_check_modify_time_changed"),
        [&](call_arguments &list) { list.number("modified", modified); },
        [&] {
            int32_t answer = is_changed; // what cannot be read is fetched again
            guarded([&] {
                const platform::held_mutex change(change_mutex());
                if (the_store().setting(linkage_time_setting) == std::to_string(modified)) {
                    answer = 0;
                }
            });
            return answer;
        });
}

int32_t engr_reset_scene_info_to_disk(void) {
    return service(call("engr_reset_scene_info_to_disk"), no_arguments, [] {
        return guarded([] {
            lasting_change change;
            erase_linkage();
            change.commit();
            loaded_scenes.clear(); // what is executed is what is stored, whatever comes next
        });
    });
}

int32_t engr_save_scene_link(int32_t total, int32_t modified, cJSON *request) {
    return service(
        call("engr_save_scene_link"),
        [&](call_arguments &list) {
            list.number("total", total).number("modified", modified).json("root", request);
        },
        [&] {
            return guarded([&] {
                read_request(request,
                             [&](const json_value &set) { save_linkage(total, modified, set); });
            });
        });
}

int32_t engr_load_scene_info_from_disk(void) {
    return service(call("engr_load_scene_info_from_disk"), no_arguments, [] {
        return guarded([] {
            const platform::held_mutex change(change_mutex());
            load_linkage();
        });
    });
}

int32_t engr_scene_linkage_module_reinit(void) {
    return service(call("engr_scene_linkage_module_reinit"), no_arguments, [] {
        const platform::held_mutex change(change_mutex());
        loaded_scenes.clear();
        return 0;
    });
}
