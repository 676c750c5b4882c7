// Groups of devices.
#pragma once

#include "gateway/records.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
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

/**
 * Carries out a group operation of an app; see carry_out_operation.
 *
 * @return 0; result_argument when the request is malformed
 */
int32_t operate_group(const cJSON *request);

/** Takes a device out of its groups; within a lasting change. */
void leave_groups(std::string_view dev_id);

/** Adds the groups with the number of their members; change_mutex is held. */
void add_groups_status(nlohmann::ordered_json &status);

} // namespace gateway
