/*
 * Bounds what lines of one place in the source may take of the log, so that a client that provokes
 * failures cannot fill it.
 */
#pragma once

#include "wait.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>

namespace linux_port {

/** Lines that were left out. */
struct left_out_lines {
    uint64_t count;
    int level;
    int line;
    char file[48];
    char function[64];
};

/**
 * Counts the lines of each place, a second at a time. A place may write so many lines, and another
 * one as long as those so far are not too long together; the rest of its second is left out.
 */
class log_limit {
  public:
    static constexpr uint32_t lines_max = 20;
    static constexpr size_t bytes_max = 16 * 1024;
    static constexpr std::chrono::seconds period{1};

    /** Whether a line of this place may be written now. Any thread. */
    bool admits(std::string_view file, int line, std::string_view function, int level,
                monotonic_clock::time_point now);
    /** Counts the length of a line that was written. */
    void add_bytes(std::string_view file, int line, size_t bytes);
    /** Whether take_left_out has something to return. Fast, for every call of the log. */
    [[nodiscard]] bool has_left_out() const {
        return has_left_out_.load(std::memory_order_relaxed);
    }
    /** Lines that were left out in a second that is over; nothing when there are none. Any thread.
     */
    std::optional<left_out_lines> take_left_out(monotonic_clock::time_point now);

  private:
    struct place {
        monotonic_clock::time_point begin =
            monotonic_clock::time_point::min(); /**< of its second */
        uint32_t lines = 0;
        size_t bytes = 0;
        left_out_lines left_out{};
    };

    place *find(std::string_view file, int line);
    place *free_place(monotonic_clock::time_point now);

    std::mutex mutex_;
    std::array<place, 64> places_;
    std::atomic<bool> has_left_out_{false};
};

} // namespace linux_port
