// Escaping and cutting of text for a terminal.
#include "base/escape.h"

#include "lan_client/utf8.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <span>

namespace engr_app {
namespace {

using lan_client::code_point;
using lan_client::first_code_point;

struct code_range {
    char32_t first;
    char32_t last;
};

constexpr std::array unsafe_ranges = {
    code_range{0x0000, 0x001F},    code_range{0x007F, 0x009F}, code_range{0x00AD, 0x00AD},
    code_range{0x061C, 0x061C},    code_range{0x180E, 0x180E}, code_range{0x200B, 0x200F},
    code_range{0x2028, 0x202E},    code_range{0x2060, 0x206F}, code_range{0xD800, 0xF8FF},
    code_range{0xFEFF, 0xFEFF},    code_range{0xFFF0, 0xFFFB}, code_range{0xFFFE, 0xFFFF},
    code_range{0xE0000, 0x10FFFF},
};
constexpr std::array no_column_ranges = {
    code_range{0x0300, 0x036F}, code_range{0x0483, 0x0489}, code_range{0x0591, 0x05BD},
    code_range{0x0610, 0x061A}, code_range{0x064B, 0x065F}, code_range{0x1AB0, 0x1AFF},
    code_range{0x1DC0, 0x1DFF}, code_range{0x20D0, 0x20FF}, code_range{0xFE00, 0xFE0F},
    code_range{0xFE20, 0xFE2F},
};
constexpr std::array two_column_ranges = {
    code_range{0x1100, 0x115F},   code_range{0x2E80, 0x303E}, code_range{0x3041, 0xA4CF},
    code_range{0xAC00, 0xD7A3},   code_range{0xF900, 0xFAFF}, code_range{0xFE30, 0xFE6F},
    code_range{0xFF00, 0xFF60},   code_range{0xFFE0, 0xFFE6}, code_range{0x1F300, 0x1FAFF},
    code_range{0x20000, 0x3FFFD},
};

// More marks on one character than any script needs would reach into the lines above and below.
constexpr std::size_t max_marks = 3;

bool within(char32_t value, std::span<const code_range> ranges) {
    for (const code_range &range : ranges) {
        if (value >= range.first && value <= range.last) {
            return true;
        }
    }
    return false;
}

std::size_t columns_of(char32_t value) {
    return within(value, no_column_ranges) ? 0 : within(value, two_column_ranges) ? 2 : 1;
}

std::string escape(char32_t value, bool well_formed) {
    switch (value) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        std::array<char, 16> text{};
        const char *form = !well_formed || value < 0x80 ? "\\x%02x" : "\\u{%x}";
        std::snprintf(text.data(), text.size(), form, static_cast<unsigned>(value));
        return text.data();
    }
}

struct shown_step {
    std::string text;
    std::size_t columns;
    std::size_t bytes; // of the source
};

shown_step show_first(std::string_view text) {
    const code_point step = first_code_point(text);
    if (step.well_formed && !is_unsafe(step.value)) {
        return {std::string(text.substr(0, step.bytes)), columns_of(step.value), step.bytes};
    }
    const char32_t value = step.well_formed ? step.value : static_cast<unsigned char>(text.front());
    std::string escaped = escape(value, step.well_formed);
    const std::size_t columns = escaped.size();
    return {std::move(escaped), columns, step.bytes};
}

} // namespace

bool is_unsafe(char32_t character) {
    return within(character, unsafe_ranges);
}

std::string escape_for_terminal(std::string_view text, std::size_t max_columns) {
    std::string out;
    std::size_t columns = 0;
    std::size_t marks = 0;
    // Where to go back to when an ellipsis has to follow.
    std::size_t room_for_ellipsis_bytes = 0;
    while (!text.empty()) {
        const shown_step step = show_first(text);
        text.remove_prefix(step.bytes);
        marks = step.columns == 0 ? marks + 1 : 0;
        if (marks > max_marks) {
            continue;
        }
        if (columns + step.columns > max_columns) {
            out.resize(room_for_ellipsis_bytes);
            return max_columns == 0 ? "" : out + "…";
        }
        out += step.text;
        columns += step.columns;
        if (columns + 1 <= max_columns) {
            room_for_ellipsis_bytes = out.size();
        }
    }
    return out;
}

std::size_t text_columns(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const code_point step = first_code_point(text);
        columns += columns_of(step.value);
        text.remove_prefix(step.bytes);
    }
    return columns;
}

} // namespace engr_app
