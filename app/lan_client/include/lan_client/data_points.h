// Data points as a gateway reports them.
#pragma once

#include "lan_client/client.h"

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lan_client {

/**
 * @param device_id  empty: the gateway itself
 * @return the payload of a frame_type::local_dp_query: what the gateway knows of the data points
 */
[[nodiscard]] nlohmann::json known_points_query(const std::string &device_id);

/** @return the payload of a frame_type::tp_cmd; `data_points` is an object of values by number */
[[nodiscard]] nlohmann::json device_command(const std::string &device_id,
                                            const nlohmann::json &data_points);

/**
 * @param numbers  none: all data points
 * @return the payload of a frame_type::dp_query, which makes the device report data points
 */
[[nodiscard]] nlohmann::json report_query(const std::string &device_id,
                                          const std::vector<int> &numbers);

/** @return whether a gateway says in its own way that it has no such device */
[[nodiscard]] bool says_unknown_device(const answer &answered);

/** @return whether it says so that the device has no data points */
[[nodiscard]] bool says_no_data_points(const answer &answered);

/** @return {"cid", "dps"} of a report or an answer; null when it has none */
[[nodiscard]] nlohmann::json parse_device_state(std::string_view payload);

/**
 * @param device_id    the very id in the report; empty: that of a report without one
 * @param data_points  numbers
 * @return whether the report is of that device and has all these data points
 */
[[nodiscard]] bool contains(const report &report, const std::string &device_id,
                            const std::vector<std::string> &data_points);

} // namespace lan_client
