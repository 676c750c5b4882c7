// Standard output and standard error of the process, with progress bars below the output.
#pragma once

#include "terminal/progress_bar.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace engr_app {

/** A bar of the screen; guarded by the screen's mutex. */
struct bar_state {
    using clock = std::chrono::steady_clock;

    bar_figures figures;
    clock::time_point started = clock::now();
    clock::time_point drawn = started;    /**< last time it was shown */
    clock::time_point measured = started; /**< last time the rate was measured */
    uint64_t measured_done = 0;
    bool written = false; /**< whether a line of it was written */
};

/**
 * One a process, shared by all consoles; may be used on any thread. Bars take the last lines of a
 * terminal; other output appears above them.
 */
class screen {
  public:
    /** @param quiet  only results and errors are to be shown */
    explicit screen(bool quiet = false);
    screen(const screen &) = delete;
    screen &operator=(const screen &) = delete;

    [[nodiscard]] bool output_is_terminal() const { return output_is_terminal_; }
    [[nodiscard]] bool messages_are_terminal() const { return messages_are_terminal_; }

    [[nodiscard]] bool is_quiet() const { return quiet_; }

    /** Columns of the terminal that results go to. */
    [[nodiscard]] std::size_t columns() const { return columns_; }

    /** Writes whole lines of a result. @throws failure when they can't be written */
    void output(std::string_view lines);

    /** Writes whole lines to standard error. */
    void message(std::string_view lines);

  private:
    friend class progress_bar;

    void add(std::shared_ptr<bar_state> bar);
    void update(bar_state &bar, uint64_t done, uint64_t total);
    void wait(bar_state &bar, const std::string &what);
    void redraw(bar_state &bar);
    void finish(const std::shared_ptr<bar_state> &bar);
    void write_message(std::string_view lines);
    std::string without_bars();
    std::string with_bars();

    const bool quiet_;
    const bool output_is_terminal_;
    const bool messages_are_terminal_;
    const std::size_t columns_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<bar_state>> bars_;
    std::size_t drawn_lines_ = 0;
};

} // namespace engr_app
