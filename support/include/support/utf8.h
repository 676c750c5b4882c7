// Text in UTF-8 that may be malformed, as everything from a network may be, and what a terminal
// makes of its characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace support {

/** The first code point of a text. */
struct code_point {
    char32_t value = 0;    /**< meaningful only when valid */
    std::size_t bytes = 1; /**< bytes that it takes, at least 1 */
    bool is_valid = false;
};

/**
 * Decodes the first code point of a text that is not empty. Overlong forms, surrogates and values
 * above U+10FFFF are invalid; what is invalid takes one byte.
 */
[[nodiscard]] code_point first_code_point(std::string_view text);

[[nodiscard]] bool is_utf8(std::string_view text);

/** The text with each byte that is not part of valid UTF-8 replaced by U+FFFD. */
[[nodiscard]] std::string valid_utf8(std::string_view text);

/**
 * Whether a reader sees the character and a terminal only shows it. Control and format characters,
 * line and paragraph separators, invisible letters, and code points without a character are not
 * visible. Marks that go onto the character before them are.
 */
[[nodiscard]] bool is_visible(char32_t character);

/** Columns that a visible character takes on a terminal, 0 to 2. */
[[nodiscard]] std::size_t columns_of(char32_t character);

} // namespace support
