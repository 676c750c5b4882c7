#include "activity_output.h"

#include "linux_port/port.h"
#include "verbs.h"

#include <fmt/format.h>

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

namespace gatewayd {
namespace {

/** An app decides how much is written, and standard error may be a file. */
constexpr int lines_per_second = 50;
constexpr std::size_t line_bytes_max = 400;

bool activity_is_shown = true;

std::mutex activity_mutex; // guards what follows
std::time_t current_second;
int lines_of_second;
uint64_t left_out;

/** The journal has a time of its own for each line. */
std::string time_of_day(std::time_t now) {
    static const bool is_for_journal = std::getenv("JOURNAL_STREAM") != nullptr;
    std::tm local{};
    if (is_for_journal || localtime_r(&now, &local) == nullptr) {
        return "";
    }
    return fmt::format("{:02}:{:02}:{:02} ", local.tm_hour, local.tm_min, local.tm_sec);
}

} // namespace

void set_activity_shown(bool shown) {
    activity_is_shown = shown;
}

void show_activity(std::string_view text) {
    if (!activity_is_shown) {
        return;
    }
    const std::time_t now = std::time(nullptr);
    std::string line = control::terminal_text(text);
    if (line.size() > line_bytes_max) {
        line.replace(line_bytes_max - 3, std::string::npos, "...");
    }
    const std::lock_guard guard(activity_mutex);
    if (now != current_second) {
        current_second = now;
        lines_of_second = 0;
    }
    if (lines_of_second == lines_per_second) {
        ++left_out;
        return;
    }
    ++lines_of_second;
    if (left_out != 0) {
        linux_port::write_standard_error(
            fmt::format("{}{} lines were left out", time_of_day(now), left_out));
        left_out = 0;
    }
    linux_port::write_standard_error(time_of_day(now) + line);
}

} // namespace gatewayd
