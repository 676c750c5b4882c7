// What happens at the gateway, for those who record or show it: connections, bytes, datagrams,
// calls into services, the log, control lines, and what apps do.
//
// Nothing is observed, and nothing costs time, unless somebody listens. Functions that tell may be
// called on any thread at any time; they never wait for a listener.
#pragma once

#include "session/live.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gatewayd {

/**
 * Adds a listener; before begin_happenings.
 *
 * @param on_pause  called on the same thread when there is nothing more to hand out; may be empty
 */
void listen_to_happenings(session::live_events::listener listener,
                          std::function<void()> on_pause = {});

/** Whether somebody listens. */
bool happenings_are_observed();

/**
 * Begins to observe the open gateway, before its agent starts and the first socket is made. Without
 * a listener it does nothing.
 */
void begin_happenings();

/** Hands out what is left; nothing is observed any more. To be called when the agent is stopped,
 * while the gateway is still open. */
void end_happenings();

/** Keys that may be found in bytes that are no frame; on a listener's thread. */
const session::known_keys &happenings_keys();

/** Microseconds since begin_happenings; 0 when nothing is observed. */
uint64_t happenings_time();

void tell_call(std::string_view name, std::string_view arguments, std::string_view result);
/** @param began_us  happenings_time when the line came */
void tell_control(uint64_t began_us, const std::vector<std::string> &line, std::string_view answer);
void tell_log(int level, std::string_view line);
void tell_happening(std::string_view sentence);

} // namespace gatewayd
