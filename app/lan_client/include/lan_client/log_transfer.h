// Fetching a gateway's log, which comes in segments.
#pragma once

#include "lan_client/client.h"

#include <chrono>
#include <cstdint>
#include <functional>

namespace lan_client {

/**
 * One transfer of the log. A gateway removes its log once it has read it, so a transfer that stops
 * can't be repeated, and serves no other app meanwhile. The payload of the answer is the log.
 */
class log_transfer {
  public:
    /** Called with bytes received and bytes in all; both may be a little too great. */
    using progress = std::function<void(uint64_t done_bytes, uint64_t total_bytes)>;

    /**
     * @param from         is closed when the transfer is too slow; must exist as long as it lasts
     * @param answer_time  that a gateway may take before it begins
     */
    log_transfer(client &from, std::chrono::milliseconds answer_time, progress on_progress);

    /** @return the request, which refers to this */
    [[nodiscard]] request wanted();

    /** @return the segment that came last, 0 of 0 before the first */
    [[nodiscard]] segment_position last() const { return last_; }

    /** @return whether the client was closed because the gateway would never have come to an end */
    [[nodiscard]] bool is_endless() const { return endless_; }

  private:
    void take(segment_position at);

    client &from_;
    std::chrono::milliseconds answer_time_;
    progress on_progress_;
    std::chrono::steady_clock::time_point began_;
    segment_position last_{0, 0};
    bool endless_ = false;
};

} // namespace lan_client
