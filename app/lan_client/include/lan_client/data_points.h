// Data points as a gateway reports them.
#pragma once

#include "lan_client/client.h"

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace lan_client {

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
