// Snapshots of the log, one at a time, for the agent to send and to remove.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace gateway {

/** Most bytes of the log that are handed out. The agent sends them slowly, and serves nobody else
 * meanwhile: 1 KiB in 300 ms makes 29 s. */
constexpr std::size_t log_upload_bytes_max = 96 * 1024;

/**
 * Removes snapshots that were never taken.
 *
 * @param newest  that of open_options
 */
void open_log_snapshots(std::function<std::string(std::size_t bytes_max)> newest);
/** Forgets the log. */
void close_log_snapshots();

/** Adds how much of the log is handed out. */
void add_log_status(nlohmann::ordered_json &status);

} // namespace gateway
