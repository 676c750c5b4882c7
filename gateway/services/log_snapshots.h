// Snapshots of the log, one at a time, for the agent to send and to remove.
#pragma once

#include <functional>
#include <string>

namespace gateway {

/** Removes snapshots that were never taken. @param write  writes a snapshot into a file of that
 * name in the working directory; false when it cannot; empty: there is no log */
void open_log_snapshots(std::function<bool(const std::string &name)> write);
/** Forgets the writer. */
void close_log_snapshots();

} // namespace gateway
