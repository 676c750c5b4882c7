// Scenes of groups, the panels that are assigned to them, and what scenes are made of.
#pragma once

#include "store/json_reader.h"

#include <string>
#include <string_view>

namespace gateway {

/** Most scenes that are stored, of groups and in a linkage set each. */
constexpr std::size_t scenes_max = 1000;

/**
 * Reads "actions": [{"cid": ID, "dps": {...}}, ...] of a scene as the text that is stored.
 *
 * @throws usage_error
 */
std::string read_actions(const json_value &scene);
/**
 * Applies stored actions to the devices that are online, and reports each change.
 *
 * @throws refused as change_data_points
 */
void apply_actions(const std::string &actions);
/** Remembers the scene that was executed last, for the status. */
void note_last_scene(const nlohmann::ordered_json &scene);

/** Drops the assignment of a panel that leaves; within a lasting change. */
void forget_panel(std::string_view dev_id);

/** Loads the stored linkage set, at the start. */
void open_linkage();
/** Forgets what does not last. */
void close_scenes();

/** Adds scenes, panels and the linkage set; change_mutex is held. */
void add_scenes_status(nlohmann::ordered_json &status);
/** Adds the linkage set; change_mutex is held. */
void add_linkage_status(nlohmann::ordered_json &status);

} // namespace gateway
