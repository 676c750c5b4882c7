// Escaping and cutting of text for a terminal.
#include "support/escape.h"

#include "support/utf8.h"

#include <fmt/format.h>

namespace support {
namespace {

/** More marks on one character than any script needs would reach into the lines above and below. */
constexpr std::size_t max_marks = 3;

std::string escape(uint32_t value, bool is_valid) {
    switch (value) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        return is_valid && value >= 0x80 ? fmt::format("\\u{{{:x}}}", value)
                                         : fmt::format("\\x{:02x}", value);
    }
}

/** The first character of a text as it is shown. */
struct shown_character {
    std::string text;
    std::size_t columns;
    std::size_t bytes; // of the source
};

shown_character show_first(std::string_view text) {
    const code_point first = first_code_point(text);
    if (first.is_valid && is_visible(first.value)) {
        return {std::string(text.substr(0, first.bytes)), columns_of(first.value), first.bytes};
    }
    std::string escaped = escape(
        first.is_valid ? first.value : static_cast<unsigned char>(text.front()), first.is_valid);
    const std::size_t columns = escaped.size();
    return {std::move(escaped), columns, first.bytes};
}

} // namespace

std::string escape_for_terminal(std::string_view text, std::size_t max_columns) {
    std::string out;
    std::size_t columns = 0;
    std::size_t marks = 0;
    // Where to go back to when an ellipsis has to follow.
    std::size_t room_for_ellipsis_bytes = 0;
    while (!text.empty()) {
        const shown_character shown = show_first(text);
        text.remove_prefix(shown.bytes);
        marks = shown.columns == 0 ? marks + 1 : 0;
        if (marks > max_marks) {
            continue;
        }
        if (columns + shown.columns > max_columns) {
            out.resize(room_for_ellipsis_bytes);
            return max_columns == 0 ? "" : out + "…";
        }
        out += shown.text;
        columns += shown.columns;
        if (columns + 1 <= max_columns) {
            room_for_ellipsis_bytes = out.size();
        }
    }
    return out;
}

std::size_t text_columns(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const code_point first = first_code_point(text);
        columns += columns_of(first.value);
        text.remove_prefix(first.bytes);
    }
    return columns;
}

} // namespace support
