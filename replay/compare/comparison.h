// How the answers of two plays of a session differ.
//
// Replies are compared by request: those of one app to one type and number, in their order.
// Reports are compared by app, type and device, in their order. Between these groups the machine
// decides the order, and it is not compared. Nor is the time of an answer, but for a connection
// that the gateway closes: the protocol sets the time after which a silent app is closed, and the
// server looks once in a cycle. A datagram is repeated as long as it is true: texts are compared,
// not how often each was sent, and an announcement that was true for a moment may be there or not;
// see passing_us. Of the operator's verbs those that only show the gateway's state are
// left out. A report at the edge of an app's connection may be there or not; see edge_us. Why a
// request under another key than the gateway's is refused is chance; see say_the_same.
#pragma once

#include "compare/answers.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace replay {

/** The gateway may close a silent app this much earlier or later: one cycle of its server, and a
 * second of its clock. */
constexpr uint64_t close_tolerance_us = 11'000'000;

enum class difference_kind : uint8_t {
    missing,    /**< only the expected side has the answer */
    unexpected, /**< only the other side has it */
    other,      /**< both have one for it, which say different things */
    other_time, /**< a connection was closed much earlier or later */
    ended       /**< the gateway ended by itself */
};

/** One difference. */
struct difference {
    difference_kind kind = difference_kind::missing;
    uint64_t at_us = 0; /**< when the expected answer came, else the other one */
    std::optional<answer> expected = {};
    std::optional<answer> got = {};

    /** The side that exists, the expected one first. */
    [[nodiscard]] const answer &shown() const { return expected ? *expected : *got; }
};

/**
 * Compares the answers of two plays of a session.
 *
 * @param end_us  the session's end: what only the other side answers later is no difference
 * @return the differences in the order of their time
 */
[[nodiscard]] std::vector<difference> compare(std::span<const answer> expected,
                                              std::span<const answer> got, uint64_t end_us);

/** A few words: "missing", "unexpected", ... */
[[nodiscard]] std::string_view name_of(difference_kind kind);

} // namespace replay
