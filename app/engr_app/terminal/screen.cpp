// Results and messages, with the progress bars below them.
#include "terminal/screen.h"

#include "base/failure.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>
#include <utility>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace engr_app {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t default_columns = 100;
constexpr std::size_t narrowest_columns = 20;
constexpr std::size_t default_rows = 24;
constexpr auto redraw_interval = 100ms;
constexpr auto plain_line_interval = 10s;
// The rate is an average over about this time.
constexpr double rate_memory_s = 3;

winsize terminal_size(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0) {
        size = {};
    }
    return size;
}

std::size_t terminal_columns(int descriptor) {
    const std::size_t columns = terminal_size(descriptor).ws_col;
    return columns == 0 ? default_columns : std::max(columns, narrowest_columns);
}

void measure(bar_state &bar, bar_state::clock::time_point now) {
    const double passed_s = std::chrono::duration<double>(now - bar.measured).count();
    if (passed_s <= 0 || bar.figures.done < bar.measured_done) {
        return;
    }
    const double rate = static_cast<double>(bar.figures.done - bar.measured_done) / passed_s;
    const double kept = bar.figures.rate_per_s > 0 ? std::exp(-passed_s / rate_memory_s) : 0.0;
    bar.figures.rate_per_s = kept * bar.figures.rate_per_s + (1 - kept) * rate;
    bar.measured = now;
    bar.measured_done = bar.figures.done;
}

void set_elapsed(bar_state &bar, bar_state::clock::time_point now) {
    bar.figures.elapsed = std::chrono::round<std::chrono::seconds>(now - bar.started);
}

} // namespace

screen::screen(bool quiet)
    : quiet_(quiet), output_is_terminal_(isatty(STDOUT_FILENO) == 1),
      messages_are_terminal_(isatty(STDERR_FILENO) == 1),
      columns_(output_is_terminal_ ? terminal_columns(STDOUT_FILENO) : default_columns) {}

void screen::output(std::string_view lines) {
    const std::lock_guard lock(mutex_);
    if (output_is_terminal_) {
        std::cerr << without_bars();
    }
    std::cout << lines << std::flush;
    const int problem = errno;
    std::cerr << with_bars();
    if (!std::cout) {
        throw failure("output",
                      fmt::format("standard output can't be written: {}", std::strerror(problem)));
    }
}

void screen::message(std::string_view lines) {
    const std::lock_guard lock(mutex_);
    write_message(lines);
}

void screen::write_message(std::string_view lines) {
    std::string text = without_bars();
    if (text.empty() && messages_are_terminal_) {
        text = "\r"; // a terminal shows Ctrl-C as ^C at the beginning of the line
    }
    text += lines;
    std::cerr << text + with_bars();
}

void screen::add(std::shared_ptr<bar_state> bar) {
    const std::lock_guard lock(mutex_);
    bars_.push_back(std::move(bar));
    write_message("");
}

void screen::update(bar_state &bar, uint64_t done, uint64_t total) {
    const std::lock_guard lock(mutex_);
    bar.figures.done = done;
    bar.figures.total = total;
    bar.figures.waits_for.clear();
    redraw(bar);
}

void screen::wait(bar_state &bar, const std::string &what) {
    const std::lock_guard lock(mutex_);
    bar.figures.waits_for = what;
    bar.figures.rate_per_s = 0; // the rate before the wait says nothing about the time after it
    bar.measured = bar_state::clock::now();
    redraw(bar);
}

void screen::redraw(bar_state &bar) {
    const auto now = bar_state::clock::now();
    const auto pause =
        messages_are_terminal_ ? bar_state::clock::duration(redraw_interval) : plain_line_interval;
    if (now - bar.drawn < pause) {
        return;
    }
    bar.drawn = now;
    set_elapsed(bar, now);
    measure(bar, now);
    if (messages_are_terminal_) {
        write_message("");
    } else {
        write_message(plain_bar_line(bar.figures) + '\n');
        bar.written = true;
    }
}

void screen::finish(const std::shared_ptr<bar_state> &bar) {
    const std::lock_guard lock(mutex_);
    std::erase(bars_, bar);
    set_elapsed(*bar, bar_state::clock::now());
    bar->figures.waits_for.clear();
    if (bar->figures.done < bar->figures.total) {
        bar->figures.rate_per_s = 0; // shows no remaining time
    }
    if (messages_are_terminal_) {
        write_message(bar_line(bar->figures, terminal_columns(STDERR_FILENO)) + '\n');
    } else if (bar->written) {
        write_message(plain_bar_line(bar->figures) + '\n');
    }
}

// The cursor stands in the line below the bars, behind what was typed, such as ^C.
std::string screen::without_bars() {
    const std::size_t lines = std::exchange(drawn_lines_, 0);
    return lines > 0 ? fmt::format("\r\x1b[{}A\x1b[J", lines) : "";
}

std::string screen::with_bars() {
    if (!messages_are_terminal_ || bars_.empty() || drawn_lines_ > 0) {
        return "";
    }
    const winsize size = terminal_size(STDERR_FILENO);
    const std::size_t rows = size.ws_row == 0 ? default_rows : size.ws_row;
    const std::size_t columns = terminal_columns(STDERR_FILENO);
    // Lines that have scrolled away cannot be erased.
    drawn_lines_ = std::min(bars_.size(), std::max<std::size_t>(rows, 3) - 2);
    std::string lines;
    for (std::size_t at = 0; at < drawn_lines_; ++at) {
        lines += bar_line(bars_[at]->figures, columns) + '\n';
    }
    return lines;
}

} // namespace engr_app
