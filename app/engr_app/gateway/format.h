// How frames and the values of sentences are written.
#pragma once

#include "lan_client/client.h"
#include "lan_client/traffic.h"

#include <chrono>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/** @return the time of day as in 2026-01-31T12:00:00.123Z */
[[nodiscard]] std::string time_text();

/** @return the time of day of this machine, as in 14:03:05 */
[[nodiscard]] std::string local_time_text();

/** @return a duration as in "0.213 ms" */
[[nodiscard]] std::string milliseconds_text(double time_ms);

/** @return a duration as in "1.5 s" */
[[nodiscard]] std::string seconds_text(std::chrono::milliseconds time);

/** @return "1 = true, 2 = 50" */
[[nodiscard]] std::string data_points_text(const nlohmann::json &data_points);

/** @return "yes" or "no" */
[[nodiscard]] const char *yes_or_no(bool value);

/** @return a frame in one line, as -v shows it; passwords, tokens and keys in it are hidden */
[[nodiscard]] std::string format_frame(const lan_client::traffic &frame);

} // namespace engr_app
