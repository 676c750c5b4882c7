// Where the log goes: a file in the data directory and, when asked for, standard error.
#pragma once

#include <string>

namespace gatewayd {

/** Name of the log file in the data directory. */
constexpr const char *log_file_name = "engr_gatewayd.log";

/**
 * Sends the log to the file in the working directory.
 *
 * @param level     most detailed level that is kept
 * @param is_shown  on standard error, too
 * @throws std::runtime_error  the file cannot be written
 */
void open_log(int level, bool is_shown);

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
