// What apps do and what happens, a line each, on standard error.
#pragma once

#include <string_view>

namespace gatewayd {

/** Whether show_activity shows anything; it does from the start. Before the first line. */
void set_activity_shown(bool shown);

/**
 * Writes a line, without its line feed, with the time of day before it unless the system's journal
 * gets it. Never waits for a reader; of many lines in a second the later ones are counted only. Any
 * thread.
 *
 * @param text  any characters; what is not printable ASCII becomes visible
 */
void show_activity(std::string_view text);

} // namespace gatewayd
