// The loop below lan_client in virtual time, which jumps to the next timer when nothing else is to
// be done: a time-out of hours costs as little as an answer, and comes to the millisecond.
#pragma once

#include <chrono>
#include <functional>

namespace fuzz {

/** Calls `work` from the loop that exists. */
void call_later(std::chrono::milliseconds delay, std::function<void()> work);

} // namespace fuzz
