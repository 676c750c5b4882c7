#include "visible_text.h"

#include <cstdint>

namespace linux_port {

namespace {

bool is_control(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

/** A character of UTF-8 at the start of a text; bytes is 0 when there is none. */
struct utf8_character {
    uint32_t code;
    size_t bytes;
};

utf8_character first_character(std::string_view text) {
    const auto byte_at = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byte_at(0);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < bytes) {
        return {0, 0};
    }
    uint32_t code = lead & (0x7FU >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        if ((byte_at(i) & 0xC0U) != 0x80) {
            return {0, 0};
        }
        code = code << 6 | (byte_at(i) & 0x3FU);
    }
    const bool is_overlong = (bytes == 3 && code < 0x800) || (bytes == 4 && code < 0x10000);
    const bool is_surrogate = code >= 0xD800 && code < 0xE000;
    return is_overlong || is_surrogate || code > 0x10FFFF ? utf8_character{0, 0}
                                                          : utf8_character{code, bytes};
}

/** Whether a terminal or viewer may act on a character rather than show it. */
bool is_obeyed(uint32_t code) {
    struct range {
        uint32_t first, last;
    };
    constexpr range obeyed[] = {
        {0x00, 0x1F},     {0x7F, 0x9F},     // control characters
        {0x61C, 0x61C},   {0x200E, 0x200F}, // marks of direction
        {0x2028, 0x202E},                   // line ends, embeddings and overrides
        {0x2066, 0x2069},                   // isolates
    };
    for (const range one : obeyed) {
        if (code >= one.first && code <= one.last) {
            return true;
        }
    }
    return false;
}

void append_escaped(std::string &line, std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else if (character == '\t') {
            line += "\\t";
        } else {
            line += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
        }
    }
}

} // namespace

void append_visible(std::string &line, std::string_view text) {
    while (!text.empty() && is_control(text.back())) {
        text.remove_suffix(1);
    }
    while (!text.empty()) {
        const utf8_character first = first_character(text);
        const std::string_view bytes = text.substr(0, first.bytes != 0 ? first.bytes : 1);
        if (first.bytes == 0 || is_obeyed(first.code)) {
            append_escaped(line, bytes);
        } else {
            line += bytes;
        }
        text.remove_prefix(bytes.size());
    }
}

} // namespace linux_port
