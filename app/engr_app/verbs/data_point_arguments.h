// Data points on a command line.
#pragma once

#include <functional>
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

/** Gives the number for the name of a data point, and any other text as it is. */
using data_point_naming = std::function<std::string(const std::string &text)>;

/**
 * @param assignments  texts DP=VALUE. A VALUE that is JSON's true, false, a number or a text in
 *                     quotes is that; anything else is a text as it stands
 * @param object       all data points as one JSON object, instead
 * @param number_of    for data points that have names; may be absent
 * @return {"DP": VALUE, ...}; throws a failure of wrong usage
 */
[[nodiscard]] nlohmann::json parse_data_points(const std::vector<std::string> &assignments,
                                               const std::string &object,
                                               const data_point_naming &number_of = {});

/**
 * @return a sentence that says how a text was perhaps meant, such as "on"; empty for values that
 *         look as they should
 */
[[nodiscard]] std::string doubt_about(const std::string &number, const nlohmann::json &value);

/** @return why a value is not of the type that the data point has now; empty when it is */
[[nodiscard]] std::string type_fault(const std::string &number, const nlohmann::json &now,
                                     const nlohmann::json &wanted);

} // namespace engr_app
