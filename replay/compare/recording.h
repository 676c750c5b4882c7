// A whole session in memory.
#pragma once

#include "session/event.h"

#include <cstdint>
#include <string>
#include <vector>

namespace replay {

/** What a session file holds. */
struct recording {
    session::header begin;
    std::vector<session::event> events;
};

/** When the last thing happened, in microseconds since the start. */
[[nodiscard]] uint64_t end_of(const recording &of);

/** The app's connection that an event is about; 0: of none, or the gateway's doing. */
[[nodiscard]] uint32_t client_of_app_event(const session::event &of);

} // namespace replay
