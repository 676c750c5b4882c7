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
void log_snapshots_init(std::function<std::string(std::size_t bytes_max)> newest);
/** Ends the module. */
void log_snapshots_shutdown();

/**
 * Makes a new snapshot and deletes the last one.
 *
 * @param path  gets its name, with a NUL
 * @param size  bytes of path
 * @throws refused  there is no log, it cannot be read or written, or the name does not fit
 */
void make_log_snapshot(char *path, std::size_t size);

/** Adds how much of the log is handed out. */
void add_log_status(nlohmann::ordered_json &status);

} // namespace gateway
