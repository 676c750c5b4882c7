// Reduces a session to the events that make the agent answer differently.
//
// Everything up to the difference is needed at most. Pauses are shortened, then apps, runs of
// events, and members of payloads are left out, as long as the same difference is the first one:
// the same kind, the same answer expected, the same answer got. Reports that nothing causes any
// more are left out with what caused them; any other answer that changes says that the record is no
// guide any more, and the attempt is dropped.
#pragma once

#include "compare/comparison.h"
#include "compare/recording.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace replay {

/** Most plays of one reduction. */
constexpr std::size_t shrink_plays_max = 5'000;

/** What came of one attempt. */
struct attempt {
    recording judged;                    /**< with the answers that are expected */
    std::vector<difference> differences; /**< of what the agent answers */
    std::vector<answer> got = {};        /**< what it answers */
};

/** Plays a session, which may be changed for it, and compares. */
using attempt_maker = std::function<attempt(recording tried)>;

/** How far the record may be left. */
struct shrink_options {
    /** Whether the attempts compare with another build, which answers what was never recorded. Else
     * the request whose answer differs stays as it is. */
    bool has_other_build = false;
};

/** The reduced session, and what it took. */
struct shrunk {
    recording reduced;
    std::size_t events_before = 0; /**< what apps and operator did */
    std::size_t events_after = 0;
    std::size_t plays = 0;
};

/** What apps and the operator did in a session: its events without answers, calls and logs. */
[[nodiscard]] std::size_t act_count(const recording &of);

/**
 * Reduces a session.
 *
 * @param from      the expected side of the difference
 * @param wanted    its first difference
 * @param progress  called after each play with the number of plays and of events left
 * @throws std::runtime_error  the difference is gone when the session ends with it
 */
[[nodiscard]] shrunk shrink(const recording &from, const difference &wanted,
                            const shrink_options &how, const attempt_maker &make_attempt,
                            const std::function<void(std::size_t, std::size_t)> &progress);

} // namespace replay
