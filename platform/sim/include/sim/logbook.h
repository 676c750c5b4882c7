/* The log of a simulated world, kept for tests. */
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace sim {

/** One line of PrintLog. */
struct log_line {
    uint64_t time_ms; /**< virtual time */
    std::string thread;
    int module;
    int level;
    std::string file;
    int line;
    std::string function;
    std::string message; /**< without control characters at its end */
};

/** All lines in order. */
class logbook {
  public:
    /** Lines kept; when there are more the oldest half is dropped (seen() still counts it). */
    static constexpr size_t lines_max = 1'000'000;

    [[nodiscard]] const std::deque<log_line> &lines() const { return lines_; }
    /** Whether a line of the level contains the text. */
    [[nodiscard]] bool has(int level, std::string_view text) const {
        return count(level, text) != 0;
    }
    /** Whether any line contains the text. */
    [[nodiscard]] bool has(std::string_view text) const { return count(any_level, text) != 0; }
    /** How many lines of the level (any_level: of all) contain the text. */
    [[nodiscard]] size_t count(int level, std::string_view text) const;
    [[nodiscard]] size_t count(std::string_view text) const { return count(any_level, text); }
    static constexpr int any_level = -1;
    /** All lines as text, `TIME THREAD LEVEL FILE:LINE FUNCTION MESSAGE`; last != 0: only the last
     * ones. */
    [[nodiscard]] std::string text(size_t last = 0) const;
    /** Lines ever written, those not kept included. */
    [[nodiscard]] uint64_t seen() const { return seen_; }
    /** Forgets the lines so far. */
    void clear() { lines_.clear(); }
    /** For the port: adds a line. */
    void add(log_line line);

  private:
    std::deque<log_line> lines_;
    uint64_t seen_ = 0;
};

} // namespace sim
