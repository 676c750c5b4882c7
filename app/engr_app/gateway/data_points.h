// Data points as a gateway reports them.
#pragma once

#include "lan_client/client.h"

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/** @return "1 = true, 2 = 50" */
[[nodiscard]] std::string data_points_text(const nlohmann::json &data_points);

/** @return {"cid", "dps"} of a report or an answer; null when it has none */
[[nodiscard]] nlohmann::json parse_device_state(std::string_view payload);

/**
 * @param device_id    the very id in the report; empty: that of a report without one
 * @param data_points  numbers
 * @return whether the report is of that device and has all these data points
 */
[[nodiscard]] bool contains(const lan_client::report &report, const std::string &device_id,
                            const std::vector<std::string> &data_points);

} // namespace engr_app
