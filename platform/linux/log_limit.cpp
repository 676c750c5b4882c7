#include "log_limit.h"

#include <algorithm>

namespace linux_port {

namespace {

/** Keeps the beginning of a text. */
template <size_t size>
void copy_text(char (&to)[size], std::string_view text) {
    const size_t length = std::min(text.size(), size - 1);
    std::copy_n(text.data(), length, to);
    to[length] = '\0';
}

} // namespace

log_limit::place *log_limit::find(std::string_view file, int line) {
    const std::string_view kept = file.substr(0, sizeof left_out_lines::file - 1);
    for (place &one : places_) {
        if (one.left_out.line == line && kept == one.left_out.file) {
            return &one;
        }
    }
    return nullptr;
}

/** A place without lines to report; null when the whole table is in use. */
log_limit::place *log_limit::free_place(monotonic_clock::time_point now) {
    for (place &one : places_) {
        if (one.left_out.count == 0 && (one.lines == 0 || now - one.begin >= period)) {
            return &one;
        }
    }
    return nullptr;
}

bool log_limit::admits(std::string_view file, int line, std::string_view function, int level,
                       monotonic_clock::time_point now) {
    const std::lock_guard lock(mutex_);
    place *one = find(file, line);
    if (one == nullptr) {
        one = free_place(now);
        if (one == nullptr) {
            return true;
        }
        *one = {};
        one->left_out.line = line;
        copy_text(one->left_out.file, file);
        copy_text(one->left_out.function, function);
    }
    if (one->lines == 0 || now - one->begin >= period) {
        one->begin = now;
        one->lines = 0;
        one->bytes = 0;
    }
    one->left_out.level = level;
    if (one->lines >= lines_max || one->bytes >= bytes_max) {
        ++one->left_out.count;
        has_left_out_ = true;
        return false;
    }
    ++one->lines;
    return true;
}

void log_limit::add_bytes(std::string_view file, int line, size_t bytes) {
    const std::lock_guard lock(mutex_);
    if (place *one = find(file, line)) {
        one->bytes += bytes;
    }
}

std::optional<left_out_lines> log_limit::take_left_out(monotonic_clock::time_point now) {
    const std::lock_guard lock(mutex_);
    bool any_left_out = false;
    for (place &one : places_) {
        if (one.left_out.count != 0 && now - one.begin >= period) {
            const left_out_lines taken = one.left_out;
            one.left_out.count = 0;
            return taken;
        }
        any_left_out = any_left_out || one.left_out.count != 0;
    }
    has_left_out_ = any_left_out;
    return std::nullopt;
}

} // namespace linux_port
