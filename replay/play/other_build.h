// Plays a session with another build of engr_replay.
#pragma once

#include "compare/recording.h"
#include "play/process.h"

#include <string>

namespace replay {

/**
 * Runs `PROGRAM --answers`.
 *
 * @param program  the other build's engr_replay
 * @throws support::input_error  it can't be started, or does not write a session
 */
[[nodiscard]] play_result play_with(const std::string &program, const recording &played,
                                    const play_options &how);

} // namespace replay
