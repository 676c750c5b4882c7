// Data points as they are written on a command line, and as devices tell them.
#pragma once

#include "lan_client/client.h"

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class arguments;

/// Declares DP=VALUE... and --json-dps, which parse_data_points reads.
void declare_data_points(arguments &declared, std::vector<std::string> &assignments,
                         std::string &object);

/// The number of a data point, 1 to 255. Throws a failure of wrong usage.
[[nodiscard]] int parse_data_point(std::string_view text);

/// {"DP": VALUE, ...} of texts "DP=VALUE": a VALUE that is JSON's true, false, a number or a text
/// in quotes is that; anything else is a text as it stands. With `object` that JSON object is
/// taken instead. Throws a failure of wrong usage.
[[nodiscard]] nlohmann::json parse_data_points(const std::vector<std::string> &assignments,
                                               const std::string &object);

/// "1 = true, 2 = 50".
[[nodiscard]] std::string data_points_text(const nlohmann::json &data_points);

/// {"cid", "dps"} of a report or an answer; null when it is none.
[[nodiscard]] nlohmann::json parse_device_state(std::string_view payload);

/// Whether a report tells these data points of the device with exactly this id; an empty one is
/// that of a report that names no device.
[[nodiscard]] bool contains(const lan_client::report &report, const std::string &device_id,
                            const std::vector<std::string> &data_points);

} // namespace engr_app
