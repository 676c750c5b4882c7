// Where the log goes: standard error and a file in the data directory.
#pragma once

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

/** Sends it to standard error alone. */
void close_log();

} // namespace gatewayd
