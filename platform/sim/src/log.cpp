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

std::string formatted(const char *format, va_list arguments) {
    char first_try[512];
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(first_try, sizeof first_try, format, arguments);
    std::string message;
    if (length < static_cast<int>(sizeof first_try)) {
        message.assign(first_try, static_cast<size_t>(std::max(length, 0)));
    } else {
        message.resize(static_cast<size_t>(length));
        std::vsnprintf(message.data(), message.size() + 1, format, again);
    }
    va_end(again);
    return message;
}

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
    const std::string message = sim::formatted(format, arguments);
    va_end(arguments);
    call.note(message);
    if (core.chosen.keeps_log) {
        core.log.add({core.threads.now_ms(), core.threads.self().name, module, level, file, line,
                      function, sim::presentable(message)});
    }
    call.end(0);
    errno = saved_errno;
}
