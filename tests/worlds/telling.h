/* Telling stories, and making them as short as their problem allows. */
#pragma once

#include "story.h"

#include <string>

namespace worlds {

/** What came of a story. */
struct telling {
    std::string problems; /**< a line each; empty: all is well */
    std::string log;      /**< of the agent, last lines */
    /** Kind of the first problem: its words without figures. */
    [[nodiscard]] std::string kind() const;
};

/** Tells a story in a process of its own, so that neither a crash nor what the agent keeps for the
 * life of a process reaches the next one. */
telling tell(const story &told);

/**
 * Drops actors and steps, and the pauses between steps, as long as a story of the same kind of
 * problem is left. Each shorter story is tried under a few schedules.
 *
 * @param told  a story with a problem
 * @return a story with the same kind of problem
 */
story shorten(const story &told);

} // namespace worlds
