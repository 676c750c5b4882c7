// Declaring and reading data points of a command line.
#include "verbs/data_point_arguments.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/json_file.h"
#include "support/data_points.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

json parse_value(const std::string &assignment, const std::string &text) {
    if (text.empty()) {
        throw wrong_usage(fmt::format("{} has no value; an empty text is written {}'\"\"'",
                                      assignment, assignment));
    }
    json value = parse_json(text);
    return value.is_boolean() || value.is_number() || value.is_string() ? value : json(text);
}

const char *type_name(const json &value) {
    return value.is_boolean() ? "true or false" : value.is_number() ? "a number" : "a text";
}

// What is often typed for true and false.
const char *boolean_meant(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char one) { return std::tolower(one); });
    const auto is_one_of = [&text](std::initializer_list<std::string_view> words) {
        return std::ranges::find(words, text) != words.end();
    };
    return is_one_of({"on", "yes", "true", "1"})    ? "true"
           : is_one_of({"off", "no", "false", "0"}) ? "false"
                                                    : nullptr;
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
        throw wrong_usage(fmt::format("invalid data point {}: use 1 to 255", text));
    }
    return number;
}

json parse_data_points(const std::vector<std::string> &assignments, const std::string &object,
                       const data_point_naming &number_of) {
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
        const std::string point = assignment.substr(0, equals);
        const std::string number =
            std::to_string(parse_data_point(number_of ? number_of(point) : point));
        if (data_points.contains(number)) {
            throw wrong_usage(fmt::format("data point {} is given twice", number));
        }
        data_points[number] = parse_value(assignment, assignment.substr(equals + 1));
    }
    return data_points;
}

std::string doubt_about(const std::string &number, const json &value) {
    if (!value.is_string()) {
        return "";
    }
    const auto text = value.get<std::string>();
    if (const char *meant = boolean_meant(text)) {
        return fmt::format("data point {} gets the text {}; for a switch write {}={}", number,
                           one_line(value), number, meant);
    }
    return text.find('=') != std::string::npos
               ? fmt::format("data point {} gets the text {}; several data points are separated by "
                             "blanks",
                             number, one_line(value))
               : "";
}

std::string type_fault(const std::string &number, const json &now, const json &wanted) {
    if (std::string_view(type_name(now)) == type_name(wanted)) {
        return "";
    }
    std::string fault =
        fmt::format("data point {} is {} ({}), but {} is {}", number, type_name(now), one_line(now),
                    one_line(wanted), type_name(wanted));
    if (now.is_boolean()) {
        const char *meant =
            boolean_meant(wanted.is_string() ? wanted.get<std::string>() : one_line(wanted));
        fault += meant != nullptr ? fmt::format("; write {}={}", number, meant) : "";
    } else if (now.is_string()) {
        fault += fmt::format("; write {}='\"{}\"'", number, one_line(wanted));
    }
    return fault;
}

} // namespace engr_app
