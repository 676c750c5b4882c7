// Data points on a command line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace CLI {
class App;
}

namespace engr_app {

/** Declares DP=VALUE... and --json-dps, which parse_data_points reads. */
void declare_data_points(CLI::App &parser, std::vector<std::string> &assignments,
                         std::string &object);

/** @return the number of a data point, 1 to 255; throws a failure of wrong usage */
[[nodiscard]] int parse_data_point(std::string_view text);

/**
 * @param assignments  texts DP=VALUE. A VALUE that is JSON's true, false, a number or a text in
 *                     quotes is that; anything else is a text as it stands
 * @param object       all data points as one JSON object, instead
 * @return {"DP": VALUE, ...}; throws a failure of wrong usage
 */
[[nodiscard]] nlohmann::json parse_data_points(const std::vector<std::string> &assignments,
                                               const std::string &object);

} // namespace engr_app
