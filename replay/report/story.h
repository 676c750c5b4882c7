// What happened before something, in lines for people.
#pragma once

#include "compare/answers.h"
#include "compare/recording.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace replay {

/** Time since the start of a session, as 00:03:12.345. */
[[nodiscard]] std::string time_text(uint64_t at_us);

/** An event in one line of printable ASCII, without its time: "client 2 > 7 FRM_DEV_LIST"; empty
 * for calls, log lines and the like. */
[[nodiscard]] std::string line_of_event(const session::event &of);

/**
 * The last lines before an event, oldest first.
 *
 * @param before  place of the event
 * @param most    most lines
 */
[[nodiscard]] std::vector<std::string> story_before(const recording &of, std::size_t before,
                                                    std::size_t most);

/** The last lines that were logged up to a time and within the second before it, oldest first. */
[[nodiscard]] std::vector<std::string> log_before(const recording &of, uint64_t at_us,
                                                  std::size_t most);

} // namespace replay
