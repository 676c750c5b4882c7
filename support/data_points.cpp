#include "support/data_points.h"

#include "support/json_value.h"
#include "support/numbers.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace support {

int data_point_number(std::string_view name) {
    const bool has_leading_zero = name.starts_with('0');
    return has_leading_zero ? 0 : whole_number<uint8_t>(name).value_or(0);
}

std::string data_points_fault(const nlohmann::ordered_json &object, std::size_t text_bytes_max) {
    if (!object.is_object()) {
        return "is not an object of data points like {\"1\": true}";
    }
    for (const auto &[name, value] : object.items()) {
        if (data_point_number(name) == 0) {
            return fmt::format("'{}' is not a data-point number, 1 to 255", name);
        }
        if (!value.is_boolean() && !value.is_number() && !value.is_string()) {
            return fmt::format(
                "the value of data point {} is neither true, false, a number nor a text", name);
        }
        if (value.is_string() && value.get_ref<const std::string &>().size() > text_bytes_max) {
            return fmt::format("the text of data point {} is longer than {} bytes", name,
                               text_bytes_max);
        }
    }
    return {};
}

void check_data_points(const json_value &object, std::size_t text_bytes_max) {
    if (const std::string fault = data_points_fault(object.json, text_bytes_max); !fault.empty()) {
        object.refuse(fault);
    }
}

} // namespace support
