// Groups of devices.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/**
 * Members of a group, in the order in which they were added. Takes change_mutex.
 *
 * @throws refused there is no such group
 */
std::vector<std::string> need_group_members(std::string_view gid);

/** Takes a device out of its groups; within a lasting change. */
void leave_groups(std::string_view dev_id);

/** Adds the groups with the number of their members; change_mutex is held. */
void add_groups_status(nlohmann::ordered_json &status);

} // namespace gateway
