// Changes of data points: stored, then reported to every app.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** Data points as apps get them: {"cid": ID, "dps": {...}}. */
std::string report_text(std::string_view dev_id, std::string_view dps);

/** New data points of one device. */
struct data_point_change {
    std::string dev_id;
    std::string dps; /**< an object of data points */
};

/** Where a change of data points comes from. */
enum class change_origin : uint8_t {
    device,       /**< the device reports it */
    command,      /**< an app commands one device */
    many_commands /**< an app commands a group or runs a scene; who is offline is left out */
};

/**
 * Stores changed data points, all or nothing, and reports each change to every app.
 *
 * @return the result of the last report, 0 when there was none
 * @throws refused  a device is unknown or offline, of many all of them are; the product of a device
 * does not take a value; or the store failed
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
