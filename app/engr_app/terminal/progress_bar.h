// Progress bars.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace engr_app {

class screen;
struct bar_state;

/** State of a bar. */
struct bar_figures {
    std::string label;
    std::string unit; /**< such as "devices"; empty: bytes; "%": done is the percentage, and nothing
                         else is shown */
    uint64_t done = 0;     /**< in units */
    uint64_t total = 0;    /**< in units; 0: unknown */
    double rate_per_s = 0; /**< recently; 0: not known yet */
    std::chrono::seconds elapsed{0};
    /** Text while the work waits, shown instead of amount, rate and time. */
    std::string waits_for{};
};

/** One line for a terminal: label, bar, percent, amount, rate (of bytes), time left. */
[[nodiscard]] std::string bar_line(const bar_figures &shown, std::size_t columns);

/** The same as plain text, without a bar. */
[[nodiscard]] std::string plain_bar_line(const bar_figures &shown);

/**
 * A bar that is shown as long as it exists. On a terminal it is redrawn in place, and its last
 * state remains, also when the work ends by an exception. Elsewhere a line is written every 10
 * seconds. A bar is used by one thread at a time; several bars are drawn below each other.
 */
class progress_bar {
  public:
    /** Shows nothing. */
    progress_bar() = default;
    progress_bar(screen &shown_on, bar_figures figures);
    progress_bar(progress_bar &&other) noexcept = default;
    progress_bar &operator=(progress_bar &&other) noexcept;
    ~progress_bar();

    /** @param done  units done so far */
    void show(uint64_t done);

    /** The same with a new total. */
    void show(uint64_t done, uint64_t total);

    /** Shows what the work waits for, until the next `show`. */
    void wait(const std::string &what);

    /** Ends the bar early. */
    void finish();

  private:
    screen *screen_ = nullptr;
    std::shared_ptr<bar_state> state_;
};

} // namespace engr_app
