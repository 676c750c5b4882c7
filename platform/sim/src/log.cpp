/* PrintLog and its recorded lines. */
#include "core.h"

#include "platform/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace sim {

namespace {

std::string text_of(const log_line &line) {
    return std::to_string(line.time_ms) + ' ' + line.thread + ' ' + std::to_string(line.level) +
           ' ' + line.file + ':' + std::to_string(line.line) + ' ' + line.function + ' ' +
           line.message + '\n';
}

/** Drops control characters at the end and makes those inside visible. */
std::string presentable(std::string_view message) {
    const auto is_control = [](char character) {
        return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    };
    while (!message.empty() && is_control(message.back())) {
        message.remove_suffix(1);
    }
    std::string shown;
    shown.reserve(message.size());
    for (const char character : message) {
        if (is_control(character)) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(character));
            shown += escaped;
        } else {
            shown += character;
        }
    }
    return shown;
}

/** A message with its values; only a long one takes memory, since there are many. */
class formatted_message {
  public:
    formatted_message(const char *format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        const int length = std::vsnprintf(short_one_, sizeof short_one_, format, arguments);
        if (length < static_cast<int>(sizeof short_one_)) {
            text_ = {short_one_, static_cast<size_t>(std::max(length, 0))};
        } else {
            long_one_.resize(static_cast<size_t>(length));
            std::vsnprintf(long_one_.data(), long_one_.size() + 1, format, again);
            text_ = long_one_;
        }
        va_end(again);
    }
    formatted_message(const formatted_message &) = delete;
    formatted_message &operator=(const formatted_message &) = delete;
    [[nodiscard]] std::string_view text() const { return text_; }

  private:
    char short_one_[512];
    std::string long_one_;
    std::string_view text_;
};

} // namespace

size_t logbook::count(int level, std::string_view text) const {
    return static_cast<size_t>(
        std::count_if(lines_.begin(), lines_.end(), [&](const log_line &line) {
            return (level == any_level || line.level == level) &&
                   line.message.find(text) != std::string::npos;
        }));
}

std::string logbook::text(size_t last) const {
    std::string all;
    const size_t first = last == 0 || last >= lines_.size() ? 0 : lines_.size() - last;
    for (size_t index = first; index < lines_.size(); ++index) {
        all += text_of(lines_[index]);
    }
    return all;
}

void logbook::add(log_line line) {
    ++seen_;
    if (lines_.size() >= lines_max) {
        lines_.erase(lines_.begin(), lines_.begin() + lines_max / 2);
    }
    lines_.push_back(std::move(line));
}

} // namespace sim

void PrintLog(int module, int level, const char *file, int line, const char *function,
              const char *format, ...) {
    const int saved_errno = errno;
    sim::call call(sim::operation::PrintLog, {module, level, line});
    sim::core &core = sim::current_core();
    va_list arguments;
    va_start(arguments, format);
    const sim::formatted_message message(format, arguments);
    va_end(arguments);
    call.note(message.text());
    if (core.chosen.keeps_log) {
        core.log.add({core.threads.now_ms(), core.threads.self().name, module, level, file, line,
                      function, sim::presentable(message.text())});
    }
    call.end(0);
    errno = saved_errno;
}
