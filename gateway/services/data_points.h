// Data points: JSON objects of data-point number to value, kept as text.
#pragma once

#include "records.h"

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace gateway {

/** Setting that keeps the data points of the gateway's own device while that is not in the list. */
constexpr std::string_view own_device_dps_setting = "own_device_dps";

/**
 * Checks an object of data points: numbers 1 to 255, values true, false, number or text.
 *
 * @return what is wrong with it; empty when all is well
 */
std::string data_points_fault(std::string_view dps);

/** The same for an object that has been parsed. */
std::string data_points_fault(const nlohmann::ordered_json &object);

/** Data points with changes entered. Both are valid objects of data points. */
std::string merged_data_points(std::string_view dps, std::string_view changes);

/** Data points as apps are told of them: {"cid": ID, "dps": {...}}. */
std::string report_text(std::string_view dev_id, std::string_view dps);

/** Stores changed data points of a device and reports them to every app. @return the result of the
 * report @throws refused  the store failed */
int32_t change_data_points(device_record &device, std::string_view changes);

} // namespace gateway
