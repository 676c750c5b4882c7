#include "subjects/data_points.h"

#include "store/json_text.h"

#include <nlohmann/json.hpp>

#include <charconv>

namespace gateway {
namespace {

using nlohmann::ordered_json;

std::string value_fault(const std::string &name, const ordered_json &value) {
    if (data_point_number(name) == 0) {
        return "'" + name + "' is not a data-point number, 1 to 255";
    }
    if (!value.is_boolean() && !value.is_number() && !value.is_string()) {
        return "the value of data point " + name + " is neither true, false, a number nor a text";
    }
    if (value.is_string() && value.get_ref<const std::string &>().size() > text_value_bytes_max) {
        return "the text of data point " + name + " is longer than " +
               std::to_string(text_value_bytes_max) + " bytes";
    }
    return {};
}

} // namespace

int data_point_number(std::string_view name) {
    int number = 0;
    const char *end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, number);
    const bool is_number = error == std::errc() && stop == end && name.front() != '0';
    return is_number && number >= 1 && number <= 255 ? number : 0;
}

std::string data_points_fault(std::string_view dps) {
    const ordered_json object = ordered_json::parse(dps, nullptr, false);
    return object.is_discarded() ? "is not valid JSON" : data_points_fault(object);
}

std::string data_points_fault(const ordered_json &object) {
    if (!object.is_object()) {
        return "is not an object of data points like {\"1\": true}";
    }
    for (const auto &[name, value] : object.items()) {
        if (std::string fault = value_fault(name, value); !fault.empty()) {
            return fault;
        }
    }
    return {};
}

std::string merged_data_points(std::string_view dps, std::string_view changes) {
    ordered_json merged = ordered_json::parse(dps, nullptr, false);
    merged.update(ordered_json::parse(changes, nullptr, false));
    return merged.dump();
}

std::string report_text(std::string_view dev_id, std::string_view dps) {
    return "{\"cid\":" + json_literal(dev_id) + ",\"dps\":" + std::string(dps) + "}";
}

} // namespace gateway
