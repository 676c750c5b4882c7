// JSON files of an installer, checked member by member before anything is sent.
#pragma once

#include "support/json_value.h"

#include <string>
#include <string_view>
#include <vector>

namespace engr_app {

/** 1 to 25 printable ASCII characters without blank, double quote and backslash. */
[[nodiscard]] bool is_device_id(std::string_view text);

/**
 * Reads a file, or standard input for "-".
 *
 * @param list_name  a file that is a mere array is taken for an object with this member
 * @throws failure when it cannot be read, support::input_error when it is no JSON
 */
[[nodiscard]] support::json_document read_json_file(const std::string &path,
                                                    const std::string &list_name);

/** An id in a member that has to be there. @throws support::input_error */
[[nodiscard]] std::string device_id(const support::json_value &entry, std::string_view name);

/** The ids in the same member of each entry. @throws support::input_error also for the second of
 * two that are the same */
std::vector<std::string> distinct_ids(const std::vector<support::json_value> &entries,
                                      std::string_view name);

/** Checks data points that shall be set, at least one. @throws support::input_error */
void check_wanted_data_points(const support::json_value &data_points);

/** Checks an array of {"cid", "dps"} that is not empty. @throws support::input_error */
void check_actions(const support::json_value &actions);

} // namespace engr_app
