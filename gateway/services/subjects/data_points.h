// Data points: JSON objects of data-point number to value, kept as text.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** Setting that keeps the data points of the gateway's own device while that is not in the list. */
constexpr std::string_view own_device_dps_setting = "own_device_dps";

/** An object of data points that has none. */
constexpr std::string_view no_data_points = "{}";

/** Bytes of the longest text value. */
constexpr std::size_t text_value_bytes_max = 1024;

/** The number that the name of a data point stands for, 1 to 255; 0 when it stands for none. */
int data_point_number(std::string_view name);

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

/** Data points of one device that change. */
struct data_point_change {
    std::string dev_id;
    std::string dps; /**< an object of data points */
};

/** Where a change of data points comes from. */
enum class change_origin : uint8_t {
    device,       /**< the device reports it */
    command,      /**< an app commands one device */
    many_commands /**< an app commands a group or runs a scene; who cannot be reached is left out */
};

/**
 * Stores changed data points, all or nothing, and reports each change to every app.
 *
 * @return the result of the last report, 0 when there was none
 * @throws refused  a device is unknown or offline, of many all of them are; a value is none that
 * the device's product takes; or the store failed
 */
int32_t change_data_points(const std::vector<data_point_change> &changes, change_origin origin);

/**
 * Queues a report of data points for every app.
 *
 * @param dps  an object of data points
 * @return the result of engr_lan_dp_sata_report
 */
int32_t report_to_apps(std::string_view dev_id, std::string_view dps);

} // namespace gateway
