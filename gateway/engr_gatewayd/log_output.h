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
 * Copies what the log file has so far, after the file before it, which a rotation may just have put
 * aside. No line is missing in the middle.
 *
 * @param name  a file in the working directory
 * @return whether it could
 */
bool snapshot_log(const std::string &name);

/** Sends it to standard error alone. */
void close_log();

} // namespace gatewayd
