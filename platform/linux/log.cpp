// The log: formats each entry as one line and hands it to the program's sink.
#include "platform/log.h"

#include "linux_port/port.h"
#include "log_secrets.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>

namespace linux_port {

namespace {

/** Longest message that is kept whole; a longer one is cut and ends in an ellipsis. */
constexpr size_t longest_message = 64 * 1024;
constexpr std::string_view ellipsis = "...";

std::atomic<int> highest_level{2};

struct log_output {
    std::mutex mutex;
    log_sink sink;
};

/** Never destroyed: threads may still write while the process ends. */
log_output &output() {
    static auto &instance = *new log_output;
    return instance;
}

bool is_control(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

/** Appends a message: control characters at its end are dropped, those inside it become \n, \r, \t
 * or \xNN. */
void append_visible(std::string &line, std::string_view message) {
    while (!message.empty() && is_control(message.back())) {
        message.remove_suffix(1);
    }
    constexpr char digits[] = "0123456789abcdef";
    char previous = 0;
    for (const char character : message) {
        const auto byte = static_cast<unsigned char>(character);
        // The second halves of U+0080 to U+009F in UTF-8, which terminals obey too.
        const bool c1_control = previous == '\xC2' && byte >= 0x80 && byte < 0xA0;
        previous = character;
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else if (character == '\t') {
            line += "\\t";
        } else if (is_control(character)) {
            line += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else if (c1_control) {
            line.back() = '\\';
            line += {'x', 'c', '2', '\\', 'x', digits[byte >> 4], digits[byte & 15]};
        } else {
            line += character;
        }
    }
}

void append_time(std::string &line) {
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now());
    const time_t seconds = system_clock::to_time_t(now);
    tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    line.append(text, length);
    std::snprintf(text, sizeof text, ".%03dZ",
                  static_cast<int>(now.time_since_epoch().count() % 1000));
    line += text;
}

std::string_view base_name(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/** Appends a message; only the levels that show payloads show secrets. */
void append_shown(std::string &line, int level, std::string_view message) {
    if (level < LOG_LEVEL_TRACE) {
        append_visible(line, without_secrets(message));
    } else {
        append_visible(line, message);
    }
}

/** Appends a formatted message, cut to the limit. */
void append_message(std::string &line, int level, const char *format, va_list arguments) {
    char short_message[512];
    va_list again;
    va_copy(again, arguments);
    const int needed = std::vsnprintf(short_message, sizeof short_message, format, arguments);
    const size_t length = needed > 0 ? static_cast<size_t>(needed) : 0;
    if (length < sizeof short_message) {
        append_shown(line, level, {short_message, length});
    } else {
        const size_t kept = length < longest_message ? length : longest_message;
        std::string long_message(kept + 1, '\0');
        std::vsnprintf(long_message.data(), long_message.size(), format, again);
        append_shown(line, level, std::string_view(long_message).substr(0, kept));
        line += kept < length ? ellipsis : "";
    }
    va_end(again);
}

void write_line(int level, const char *file, int line, const char *function, const char *format,
                va_list arguments) {
    std::string text;
    text.reserve(256);
    append_time(text);
    text.append(" ").append(std::to_string(level)).append(" ");
    text.append(base_name(file)).append(":").append(std::to_string(line)).append(" ");
    text.append(function).append(" ");
    append_message(text, level, format, arguments);
    text += '\n';

    log_output &log = output();
    const std::lock_guard lock(log.mutex);
    if (log.sink) {
        log.sink(level, std::string_view(text).substr(0, text.size() - 1));
    } else {
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
}

} // namespace

void set_log_level(int level) {
    highest_level = level;
}

void set_log_sink(log_sink sink) {
    log_output &log = output();
    const std::lock_guard lock(log.mutex);
    log.sink = std::move(sink);
}

} // namespace linux_port

void PrintLog(int, int level, const char *file, int line, const char *function, const char *format,
              ...) {
    if (level > linux_port::highest_level.load(std::memory_order_relaxed)) {
        return;
    }
    const int saved_errno = errno;
    va_list arguments;
    va_start(arguments, format);
    try {
        linux_port::write_line(level, file, line, function, format, arguments);
    } catch (const std::bad_alloc &) {
        // No memory: the line is lost.
    }
    va_end(arguments);
    errno = saved_errno;
}
