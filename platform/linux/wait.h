/*
 * The one way in which the port waits: poll(2) with a deadline, ended by a stop of the calling
 * thread.
 */
#pragma once

#include <poll.h>

#include <chrono>
#include <span>

namespace linux_port {

using monotonic_clock = std::chrono::steady_clock;

/** A deadline that never comes. */
constexpr monotonic_clock::time_point no_deadline = monotonic_clock::time_point::max();

/** How a wait ended. */
enum class wait_end { ready, timed_out, stopped, failed };

/**
 * Waits until one of the descriptors is ready, the deadline is over or the calling thread is told
 * to stop.
 *
 * @param watched  what to wait for; the last entry belongs to this function, which puts the
 *     thread's stop event there
 */
wait_end wait_for(std::span<pollfd> watched, monotonic_clock::time_point deadline);
/** The same for who knows the time at the call. */
wait_end wait_for(std::span<pollfd> watched, monotonic_clock::time_point deadline,
                  monotonic_clock::time_point now);

} // namespace linux_port
