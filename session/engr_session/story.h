// A session as people read it: a line for each event.
#pragma once

#include "session/event.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace engr_session {

/** Which events are shown. */
struct story_filter {
    std::optional<uint32_t> client; /**< only what happened on that connection */
    std::optional<uint32_t> type;   /**< only frames and datagrams of that type */
    bool everything = false;        /**< calls into services and log lines, too */

    [[nodiscard]] bool wants(const session::event &what) const;
};

/** The line above all others. */
[[nodiscard]] std::string story_head();

/**
 * The line of an event, without line feed; safe for a terminal.
 *
 * @param before_us  time of the event that was shown before; none: it is the first
 * @param columns    a longer line is cut, with an ellipsis
 */
[[nodiscard]] std::string story_line(const session::event &what, std::optional<uint64_t> before_us,
                                     std::size_t columns);

} // namespace engr_session
