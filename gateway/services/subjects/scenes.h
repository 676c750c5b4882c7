// Scenes of groups, the panels that they are assigned to, and the actions that scenes consist of.
#pragma once

#include "gateway/records.h"
#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

/** Most scenes that are stored, of groups and in a linkage set each. */
constexpr std::size_t scenes_max = 1000;

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
 * Applies the actions of a stored scene.
 *
 * @throws refused  it is unknown; or as apply_actions
 */
void execute_scene(const std::string &gid, const std::string &sid);

/**
 * Reads "actions": [{"cid": ID, "dps": {...}}, ...] of a scene.
 *
 * @return the text that is stored
 * @throws usage_error
 */
std::string read_actions(const support::json_value &scene);
/**
 * Applies stored actions to the devices that are online, and reports each change.
 *
 * @param scene  names the scene; the status shows it as the last one
 * @throws refused  as change_data_points
 */
void apply_actions(const std::string &actions, const nlohmann::ordered_json &scene);

/** Adds scenes, panels and the last scene; change_mutex is held. */
void add_scenes_status(nlohmann::ordered_json &status);

} // namespace gateway
