// The steps of a reduction: sessions with a part left out.
#pragma once

#include "compare/comparison.h"
#include "compare/recording.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

namespace replay {

/** Places of all acts but the connecting of apps. */
[[nodiscard]] std::vector<std::size_t> places_of_acts(const recording &of);
/** Places at which apps connect. */
[[nodiscard]] std::vector<std::size_t> places_of_apps(const recording &of);

/** The session without some events, and without what belongs to them: the replies to a request,
 * all of an app's connection. */
[[nodiscard]] recording without(const recording &from, const std::set<std::size_t> &places);

/** The session up to a difference: later events are left out, and calls, logs and the like. */
[[nodiscard]] recording cut_behind(const recording &from, const difference &last);

/** What apps and operator did and got up to a time, which becomes the session's end. */
[[nodiscard]] recording up_to(const recording &from, uint64_t end_us);

/** The session with pauses of at most so long. */
[[nodiscard]] recording with_pauses_of(const recording &from, uint64_t most_us);

/** Sessions in which the payload at a place has a member less, the outer ones first; none when it
 * has no members. */
[[nodiscard]] std::vector<recording> with_member_less(const recording &from, std::size_t place);

} // namespace replay
