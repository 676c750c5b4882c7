// Reading and writing of data points.
#include "gateway/data_points.h"

#include "base/json_text.h"
#include "files/json_file.h"
#include "gateway/request.h"
#include "lan_client/frame_types.h"
#include "support/data_points.h"
#include "verbs/arguments.h"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

json parse_value(const std::string &text) {
    json value = parse_json(text);
    return value.is_boolean() || value.is_number() || value.is_string() ? value : json(text);
}

} // namespace

void declare_data_points(arguments &declared, std::vector<std::string> &assignments,
                         std::string &object) {
    declared.optional("DPS", assignments,
                      "DP=VALUE each; VALUE is true, false, a number, or a text (in quotes when it "
                      "looks like one of these)");
    declared.option("--json-dps", object, "OBJECT", "All data points as one JSON object");
}

int parse_data_point(std::string_view text) {
    const int number = support::data_point_number(text);
    if (number == 0) {
        throw wrong_usage(std::string(text) + " is no data point; they have the numbers 1 to 255");
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
            throw wrong_usage(assignment + " is not of the form DP=VALUE, such as 1=true");
        }
        const std::string number = std::to_string(parse_data_point(assignment.substr(0, equals)));
        if (data_points.contains(number)) {
            throw wrong_usage("data point " + number + " is given twice");
        }
        data_points[number] = parse_value(assignment.substr(equals + 1));
    }
    return data_points;
}

std::string data_points_text(const json &data_points) {
    std::string text;
    for (const auto &[name, value] : data_points.items()) {
        text += (text.empty() ? "" : ", ") + name + " = " + one_line(value);
    }
    return text;
}

json parse_device_state(std::string_view payload) {
    json state = parse_json(payload);
    if (!state.is_object() || !state.contains("dps") || !state["dps"].is_object()) {
        return nullptr;
    }
    const char *id = state.contains("cid") ? "cid" : "devId";
    return {{"cid", member_text(state, id)}, {"dps", state["dps"]}};
}

bool contains(const lan_client::report &report, const std::string &device_id,
              const std::vector<std::string> &data_points) {
    if (report.type != lan_client::frame_type::dp_report || !report.readable) {
        return false;
    }
    const json state = parse_device_state(report.payload);
    return state.is_object() && state["cid"] == device_id &&
           std::ranges::all_of(data_points, [&state](const std::string &point) {
               return state["dps"].contains(point);
           });
}

} // namespace engr_app
