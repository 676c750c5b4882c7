// Where the log goes: standard error and a file in the data directory.
#pragma once

#include <string>

namespace gatewayd {

/** Name of the log file in the data directory. */
constexpr const char *log_file_name = "engr_gatewayd.log";

/**
 * Sends the log to standard error and to the file in the working directory.
 *
 * @param level  most detailed level that is kept
 * @throws std::runtime_error  the file cannot be written
 */
void open_log(int level);

/**
 * The end of what the log file has so far, after the file before it, which a rotation may just have
 * put aside. No line is missing in the middle.
 *
 * @return at most bytes_max bytes, cut anywhere
 * @throws gateway::refused  the log cannot be read
 */
std::string newest_log(std::size_t bytes_max);

/** Sends it to standard error alone. */
void close_log();

} // namespace gatewayd
