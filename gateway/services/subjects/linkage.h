// The scene-linkage set: stored as a whole with its time, executed from the copy that was loaded.
#pragma once

#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>

namespace gateway {

/**
 * Loads the stored set, which is then executed.
 *
 * @throws refused
 */
void load_linkage();
/** Forgets the loaded set; the stored one stays. */
void unload_linkage();
/**
 * Deletes the set, the stored and the loaded one.
 *
 * @throws refused
 */
void reset_linkage();

/**
 * Whether a set of this time differs from the stored one.
 *
 * @param modified  POSIX seconds
 * @throws refused
 */
bool is_new_linkage(int32_t modified);
/**
 * Stores a set in the place of the old one.
 *
 * @param total  number of its scenes
 * @throws usage_error, refused
 */
void save_linkage(int32_t total, int32_t modified, const support::json_value &request);
/**
 * Applies the actions of a loaded scene.
 *
 * @throws refused  it is unknown; or as apply_actions
 */
void execute_linkage_scene(const std::string &scene_id);

/** Adds the linkage set; change_mutex is held. */
void add_linkage_status(nlohmann::ordered_json &status);

} // namespace gateway
