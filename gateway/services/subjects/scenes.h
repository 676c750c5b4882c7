// Scenes: those of groups with the panels that they are assigned to, and the scene-linkage set,
// which is stored as a whole with its time and executed from the copy that was loaded.
//
// All functions throw refused when the store fails.
#pragma once

#include "gateway/records.h"
#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

/** Loads the stored linkage set, which is then executed. */
void load_linkage();
/** Forgets the last scene. */
void scenes_shutdown();

/**
 * Carries out a scene operation of an app; see carry_out_operation.
 *
 * @return 0; result_argument when the request is malformed
 */
int32_t operate_scene(const cJSON *request);
/** Assigns scenes to the buttons of a panel, with results as operate_scene. */
int32_t assign_panel(const cJSON *request);
/** Removes the assignment of a panel that leaves; within a lasting change. */
void remove_panel(std::string_view dev_id);
/**
 * Applies the actions of a stored scene to the devices that are online, and reports each change.
 *
 * @throws refused  it is unknown; or as change_data_points
 */
void execute_scene(const std::string &gid, const std::string &sid);

/** Forgets the loaded linkage set; the stored one stays. */
void unload_linkage();
/** Deletes the linkage set, the stored and the loaded one. */
void reset_linkage();
/**
 * Whether a linkage set of this time differs from the stored one.
 *
 * @param modified  POSIX seconds
 */
bool is_new_linkage(int32_t modified);
/**
 * Stores a linkage set in the place of the old one.
 *
 * @param total  number of its scenes
 * @throws usage_error
 */
void save_linkage(int32_t total, int32_t modified, const support::json_value &request);
/** Applies the actions of a loaded linkage scene, as execute_scene. */
void execute_linkage_scene(const std::string &scene_id);

/** Adds scenes, panels, the last scene and the linkage set; change_mutex is held. */
void add_scenes_status(nlohmann::ordered_json &status);

} // namespace gateway
