// How far a long piece of work has come.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace engr_app {

class screen;
struct bar_state;

/** What a bar shows of its work. */
struct bar_figures {
    std::string label;
    std::string unit;      /**< such as "devices"; empty: bytes */
    uint64_t done = 0;     /**< in units */
    uint64_t total = 0;    /**< in units; 0: unknown */
    double rate_per_s = 0; /**< of late; 0: not known yet */
    std::chrono::seconds elapsed{0};
    std::string
        waits_for{}; /**< in words, while nothing moves; shown instead of amount, rate and time */
};

/**
 * One line for a terminal of so many columns: label, bar, percent, amount, rate (of bytes), time
 * left.
 */
[[nodiscard]] std::string bar_line(const bar_figures &shown, std::size_t columns);

/** The same in plain words, without a bar. */
[[nodiscard]] std::string plain_bar_line(const bar_figures &shown);

/**
 * A bar from its making to its end. On a terminal it is redrawn in place and its last state stays
 * behind, also when the work ends by an exception. Elsewhere a line is written every 10 seconds. It
 * is used by one thread at a time; several bars stand below each other.
 */
class progress_bar {
  public:
    /** Shows nothing. */
    progress_bar() = default;
    progress_bar(screen &shown_on, bar_figures figures);
    progress_bar(progress_bar &&other) noexcept = default;
    progress_bar &operator=(progress_bar &&other) noexcept;
    ~progress_bar();

    /** So much is done, in all. */
    void show(uint64_t done);

    /** The same where the total is learned on the way, or changes. */
    void show(uint64_t done, uint64_t total);

    /** Nothing moves; says what is waited for, until the next `show`. */
    void wait(const std::string &what);

    /** Ends the bar before its time. */
    void finish();

  private:
    screen *screen_ = nullptr;
    std::shared_ptr<bar_state> state_;
};

} // namespace engr_app
