// Data points as JSON: an object of values by their numbers, like {"1": true, "2": 50}.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace support {

struct json_value;

/**
 * The number of a data point, written in decimal digits without leading zeros.
 *
 * @return 1 to 255; 0 when the text is no such number
 */
[[nodiscard]] int data_point_number(std::string_view name);

/**
 * Checks an object of data points: each name is a number of 1 to 255, each value true, false, a
 * number or a text. An object without members is right.
 *
 * @param text_bytes_max  bytes of the longest value that is a text
 * @return what is wrong, to stand behind the object's place; empty when nothing is
 */
[[nodiscard]] std::string data_points_fault(const nlohmann::ordered_json &object,
                                            std::size_t text_bytes_max = SIZE_MAX);

/**
 * The same for a value with a place.
 *
 * @throws input_error
 */
void check_data_points(const json_value &object, std::size_t text_bytes_max = SIZE_MAX);

} // namespace support
