// Plays a session in this process: the reference gateway and the agent in a simulated world, in
// which the recorded apps and the operator do again what they did.
//
// Apps send at the recorded times, in virtual time. The simulated machine takes no time for its
// work, so that an answer is there before the app of the record went on because of it.
#pragma once

#include "compare/recording.h"
#include "session/event.h"

#include <cstdint>
#include <functional>
#include <string>

namespace replay {

/** How a session is played. */
struct play_options {
    uint64_t seed = 1;         /**< decides what the simulated machine may decide */
    std::string site = {};     /**< JSON; takes the place of the session's own; empty: that one */
    std::string scenario = {}; /**< the same for the scenario */
};

/** Takes what happens at the gateway, in its order. */
using event_sink = std::function<void(const session::event &)>;

/**
 * Plays a session to its end, and stops the gateway. It is the only play of its process: files are
 * left in the working directory.
 *
 * @param take  gets the answers, and log lines of levels that the daemon keeps
 * @return what a world can't go on after, such as a deadlock; empty when all went well
 * @throws support::input_error  site or scenario can't be used
 */
[[nodiscard]] std::string play_here(const recording &played, const play_options &how,
                                    const event_sink &take);

} // namespace replay
