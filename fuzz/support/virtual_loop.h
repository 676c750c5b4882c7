// The loop below lan_client in a fuzz target: its time is virtual and jumps to the next timer when
// nothing else is to be done, so that a time-out of hours costs as little as an answer.
#pragma once

#include <chrono>
#include <functional>

namespace fuzz {

/** Calls `work` from the loop that exists. */
void call_later(std::chrono::milliseconds delay, std::function<void()> work);

} // namespace fuzz
