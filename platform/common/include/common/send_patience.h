/* How long sends may wait for a peer: the rule of kelo_hal_net_send, the same in every port. */
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace platform {

/**
 * The patience that one connection has with its peer. Waiting for room uses it up and bytes that
 * the peer takes give it back, so that all waits together last at most `longest` plus the time in
 * which the least rate moves what was taken. Whoever has the connection's turn to send uses it.
 */
class send_patience {
  public:
    using duration = std::chrono::microseconds;

    /** Longest wait in which the peer takes nothing. */
    static constexpr duration longest = std::chrono::seconds(2);
    /** Bytes a second that the peer has to take while sends wait for it. */
    static constexpr uint64_t least_rate = 64 * 1024;

    [[nodiscard]] duration left() const { return left_; }
    [[nodiscard]] bool is_over() const { return left_.count() == 0; }

    /** Subtracts time spent waiting. */
    void use(duration waited) { left_ = std::max(left_ - waited, duration::zero()); }

    /** Adds the time earned by bytes that the peer took. */
    void restore(uint64_t bytes) {
        // Bounded, so that the product cannot overflow.
        const uint64_t counted = std::min<uint64_t>(bytes, 2 * least_rate);
        const duration worth(counted * duration::period::den / least_rate);
        left_ = std::min(left_ + worth, longest);
    }

  private:
    duration left_ = longest;
};

} // namespace platform
