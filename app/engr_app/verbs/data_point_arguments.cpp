// Declaring and reading data points of a command line.
#include "verbs/data_point_arguments.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/json_file.h"
#include "support/data_points.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

json parse_value(const std::string &text) {
    json value = parse_json(text);
    return value.is_boolean() || value.is_number() || value.is_string() ? value : json(text);
}

} // namespace

void declare_data_points(CLI::App &parser, std::vector<std::string> &assignments,
                         std::string &object) {
    parser.add_option("DPS", assignments,
                      "DP=VALUE each; VALUE is true, false, a number, or a text (in quotes when it "
                      "looks like one of these)");
    parser.add_option("--json-dps", object, "All data points as one JSON object")
        ->type_name("OBJECT");
}

int parse_data_point(std::string_view text) {
    const int number = support::data_point_number(text);
    if (number == 0) {
        throw wrong_usage(fmt::format("{} is no data point; they have the numbers 1 to 255", text));
    }
    return number;
}

json parse_data_points(const std::vector<std::string> &assignments, const std::string &object) {
    if (assignments.empty() == object.empty()) {
        throw wrong_usage("give data points as DP=VALUE, or all of them with --json-dps");
    }
    if (!object.empty()) {
        const support::json_document document(object, "--json-dps");
        check_wanted_data_points(document.root());
        return document.root().json;
    }
    json data_points = json::object();
    for (const std::string &assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos) {
            throw wrong_usage(
                fmt::format("{} is not of the form DP=VALUE, such as 1=true", assignment));
        }
        const std::string number = std::to_string(parse_data_point(assignment.substr(0, equals)));
        if (data_points.contains(number)) {
            throw wrong_usage(fmt::format("data point {} is given twice", number));
        }
        data_points[number] = parse_value(assignment.substr(equals + 1));
    }
    return data_points;
}

} // namespace engr_app
