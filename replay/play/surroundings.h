// What a session says about the surroundings of its gateway: time, options, address, log.
#pragma once

#include "compare/recording.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace replay {

constexpr uint16_t lan_port = 6668;

/** Session time and world time. A world begins with a full second of the time of day. */
class session_clock {
  public:
    explicit session_clock(const session::header &of);

    /** Time of day at the start, seconds since 1970. */
    [[nodiscard]] uint32_t posix_s() const { return posix_s_; }
    [[nodiscard]] uint64_t world_ms(uint64_t session_us) const {
        return session_us / 1000 + fraction_ms_;
    }
    /** 0 for what happens before the session starts. */
    [[nodiscard]] uint64_t session_us(uint64_t world_ms) const {
        return world_ms < fraction_ms_ ? 0 : (world_ms - fraction_ms_) * 1000;
    }

  private:
    uint32_t posix_s_ = 0;
    uint64_t fraction_ms_ = 0;
};

/** What of the daemon's options the agent notices. */
struct started_options {
    int32_t mode = 0;
    bool access_point = false;
    std::string address = {}; /**< that was served; empty: not known */
};
[[nodiscard]] started_options options_of(const session::header &of);

/** The gateway's address: that of the options, or that which discovery told, or else that of the
 * loopback interface. */
[[nodiscard]] std::string address_of(const recording &of);

/** The log that the gateway hands out. It belongs to the machine: a play has the lines of the
 * record. */
class recorded_logs {
  public:
    explicit recorded_logs(const recording &of) : of_(of) {}

    /** An app's event is about to be played, one of the recording's: it may ask for the log. */
    void note_request(const session::event &each);
    /** The newest bytes, as the answer to the last request had them. */
    [[nodiscard]] std::string newest(std::size_t bytes_max) const;

  private:
    const recording &of_;
    std::string text_ = "a line\n";
};

/**
 * When the installation of an image ended that is under way; how long it takes is the machine's
 * business. Nothing: the record does not tell.
 *
 * @param from_ms  world time
 * @return world time, after what an app did in the millisecond before the end
 */
[[nodiscard]] std::optional<uint64_t>
end_of_installation(const recording &of, const session_clock &clock, uint64_t from_ms);

} // namespace replay
