// What apps and the operator did in a session, as a play does it again.
//
// The record tells when something was received, and when its outcome was there. Where an outcome
// lies between, the act is played when it took effect: a line of the operator before the report
// that it brought about, or when it was answered; a frame that came in pieces, piece by piece.
#pragma once

#include "compare/recording.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace replay {

/** Something that is done at one moment. */
struct act {
    uint64_t at_us;
    const session::event *what;
    std::size_t first_byte = 0;       /**< of a frame: what is sent of it begins here */
    std::size_t bytes_max = SIZE_MAX; /**< and has at most so many bytes */
    bool is_first = true; /**< false: the rest of a frame of which the first piece was sent */
};

/** Whether an app or the operator did it, and not the gateway. */
[[nodiscard]] bool is_act(const session::event &of);

/** The acts of a session in the order in which they took effect. They refer to it. */
[[nodiscard]] std::vector<act> acts_of(const recording &of);

} // namespace replay
