// Plays a session in a process of its own, so that whatever happens to the agent is a result.
#pragma once

#include "compare/answers.h"
#include "compare/recording.h"
#include "play/stage.h"

#include <string>
#include <vector>

namespace replay {

/** Processor time after which a play is ended: it hangs. */
constexpr unsigned play_cpu_s_max = 600;

/** What came of a play. */
struct play_result {
    recording happened;  /**< a session of its own: what apps did again, and what was answered */
    std::string failure; /**< why gateway and agent ended by themselves; empty: they did not */
};

/**
 * Plays a session. This process must have one thread only.
 *
 * @throws std::runtime_error  the system has no process or directory for it
 */
[[nodiscard]] play_result play(const recording &played, const play_options &how);

/** The answers of a play; the last one tells the failure, if there was one. */
[[nodiscard]] std::vector<answer> answers_of(const play_result &of);

} // namespace replay
