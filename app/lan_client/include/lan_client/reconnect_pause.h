// How long to wait before the next attempt to connect.
#pragma once

#include <algorithm>
#include <chrono>

namespace lan_client {

/**
 * Pauses that double from attempt to attempt up to a bound. Each is stretched or shortened by up to
 * a quarter, so that the apps of a restarted gateway don't all come back at the same moment.
 */
class reconnect_pause {
  public:
    explicit reconnect_pause(std::chrono::milliseconds first = std::chrono::milliseconds(500),
                             std::chrono::milliseconds longest = std::chrono::milliseconds(30000))
        : first_(first), longest_(longest), next_(first) {}

    /** The pause before the next attempt; `chance` is drawn from [0, 1). */
    [[nodiscard]] std::chrono::milliseconds next(double chance) {
        const double stretched = static_cast<double>(next_.count()) * (0.75 + chance / 2);
        next_ = std::min(next_ * 2, longest_);
        return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(stretched));
    }

    /** To be called once a connection has proved to work. */
    void reset() { next_ = first_; }

  private:
    std::chrono::milliseconds first_;
    std::chrono::milliseconds longest_;
    std::chrono::milliseconds next_;
};

} // namespace lan_client
