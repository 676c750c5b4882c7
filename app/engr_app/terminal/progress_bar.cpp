// Text of progress bars.
#include "terminal/progress_bar.h"

#include "base/escape.h"
#include "terminal/screen.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

namespace engr_app {
namespace {

constexpr std::size_t widest_bar = 30;
constexpr std::size_t narrowest_bar = 8;
constexpr std::size_t max_label_columns = 200;
constexpr const char *gap = "  ";

std::string amount_text(double amount, const std::string &unit) {
    if (!unit.empty()) {
        return fmt::format("{:.0f} {}", amount, unit);
    }
    constexpr std::array<const char *, 4> names = {"bytes", "KiB", "MiB", "GiB"};
    std::size_t power = 0;
    for (; amount >= 1024 && power + 1 < names.size(); ++power) {
        amount /= 1024;
    }
    return fmt::format("{:.{}f} {}", amount, power == 0 ? 0 : 1, names[power]);
}

std::string time_left_text(double seconds) {
    const auto whole = static_cast<uint64_t>(std::min(seconds, 359999.0) + 0.5);
    if (whole < 60) {
        return fmt::format("{} s left", whole);
    }
    if (whole < 3600) {
        return fmt::format("{} min {:02} s left", whole / 60, whole % 60);
    }
    return fmt::format("{} h {:02} min left", whole / 3600, whole / 60 % 60);
}

double part_done(const bar_figures &shown) {
    return std::min(1.0, static_cast<double>(shown.done) / static_cast<double>(shown.total));
}

std::string figures_text(const bar_figures &shown) {
    std::string text;
    if (shown.total > 0) {
        text = fmt::format("{:3.0f} %{}", 100 * part_done(shown), gap);
    }
    if (!shown.waits_for.empty()) {
        return text + shown.waits_for;
    }
    const std::string done = amount_text(static_cast<double>(shown.done), shown.unit);
    if (shown.unit == "%") {
        return text.substr(0, text.find_last_not_of(' ') + 1);
    }
    if (shown.total > shown.done) {
        const std::string total = amount_text(static_cast<double>(shown.total), shown.unit);
        text +=
            fmt::format("{} of {}", shown.unit.empty() ? done : fmt::to_string(shown.done), total);
    } else {
        text += done;
    }
    if (shown.rate_per_s > 0) {
        text += shown.unit.empty() ? gap + amount_text(shown.rate_per_s, "") + "/s" : "";
        if (shown.total > shown.done) {
            const auto missing = static_cast<double>(shown.total - shown.done);
            text += gap + time_left_text(missing / shown.rate_per_s);
        }
    }
    if (shown.total > 0 && shown.done >= shown.total) {
        text += fmt::format("{}in {} s", gap, shown.elapsed.count());
    }
    return text;
}

} // namespace

std::string bar_line(const bar_figures &shown, std::size_t columns) {
    const std::string label = escape_for_terminal(shown.label, max_label_columns) + gap;
    const std::string figures = figures_text(shown);
    const std::size_t used = text_columns(label) + figures.size() + std::string("[]  ").size();
    std::string bar;
    if (shown.total > 0 && used + narrowest_bar < columns) {
        const std::size_t width = std::min(columns - 1 - used, widest_bar);
        const auto full = static_cast<std::size_t>(part_done(shown) * static_cast<double>(width));
        bar = "[" + std::string(full, '#') + std::string(width - full, '.') + "]" + gap;
    }
    // A line that fills the last column would wrap on some terminals.
    return escape_for_terminal(label + bar + figures, columns - 1);
}

std::string plain_bar_line(const bar_figures &shown) {
    std::string figures = figures_text(shown);
    figures.erase(0, figures.find_first_not_of(' '));
    return escape_for_terminal(shown.label, max_label_columns) + ": " + figures;
}

progress_bar::progress_bar(screen &shown_on, bar_figures figures)
    : screen_(&shown_on), state_(std::make_shared<bar_state>()) {
    state_->figures = std::move(figures);
    screen_->add(state_);
}

progress_bar &progress_bar::operator=(progress_bar &&other) noexcept {
    finish();
    screen_ = other.screen_;
    state_ = std::move(other.state_);
    return *this;
}

progress_bar::~progress_bar() {
    finish();
}

void progress_bar::show(uint64_t done) {
    if (state_) {
        show(done, state_->figures.total);
    }
}

void progress_bar::show(uint64_t done, uint64_t total) {
    if (state_) {
        screen_->update(*state_, done, total);
    }
}

void progress_bar::wait(const std::string &what) {
    if (state_) {
        screen_->wait(*state_, what);
    }
}

void progress_bar::finish() {
    if (state_) {
        screen_->finish(state_);
        state_.reset();
    }
}

} // namespace engr_app
