// What apps have made of the devices: groups, scenes, scene panels and linkage scenes, in the form
// that they have in a site file.
#pragma once

#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

class store;

/** Most groups that a gateway keeps. */
constexpr std::size_t groups_max = 1000;
/** Most scenes that a gateway keeps, of groups and in the linkage set each. */
constexpr std::size_t scenes_max = 1000;

/** Setting with the time at which the linkage set was made, as the app gave it. */
constexpr std::string_view linkage_time_setting = "linkage_modified";

/**
 * Reads a list of one or more device ids.
 *
 * @throws usage_error
 */
std::vector<std::string> read_device_ids(const support::json_value &cids);
/**
 * Reads "actions": [{"cid": ID, "dps": {...}}, ...] of a scene.
 *
 * @throws usage_error
 */
nlohmann::ordered_json read_actions(const support::json_value &scene);
/**
 * Reads the buttons of a panel: [{"button": N, "sid": ID, "gid": ID}, ...].
 *
 * @throws usage_error
 */
nlohmann::ordered_json read_buttons(const support::json_value &buttons);
/**
 * Reads one linkage scene: {"sceneId": ID, "name": TEXT, "actions": [...]}, the name may be left
 * out.
 *
 * @throws usage_error
 */
nlohmann::ordered_json read_linkage_scene(const support::json_value &scene);

/** Reads "groups" of a site file: [{"gid": ID, "cids": [ID, ...]}, ...]; throws usage_error. */
nlohmann::ordered_json read_groups(const support::json_value &from);
/** Reads "scenes" of a site file: [{"gid": ID, "sid": ID, "actions": [...]}, ...]; throws
 * usage_error. */
nlohmann::ordered_json read_scenes(const support::json_value &from);
/** Reads "panels" of a site file: [{"cid": ID, "buttons": [...]}, ...]; throws usage_error. */
nlohmann::ordered_json read_panels(const support::json_value &from);
/** Reads "linkage" of a site file: {"modified": N, "scenes": [...]}; throws usage_error. */
nlohmann::ordered_json read_linkage(const support::json_value &from);

/**
 * Writes an arrangement into a new store, within its transaction.
 *
 * @param all  "groups", "scenes", "panels" and "linkage", each as read, or left out
 * @throws refused  the store fails
 */
void store_arrangement(store &into, const nlohmann::ordered_json &all);
/**
 * What is stored, all four members; change_mutex is held, or nobody else runs.
 *
 * @throws refused  the store fails
 */
nlohmann::ordered_json stored_arrangement(store &from);

} // namespace gateway
