// Reading of UTF-8 that may be malformed, as everything from a network may be.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace lan_client {

/// One step through a text.
struct code_point {
    char32_t value = 0;    ///< meaningful only when well formed
    std::size_t bytes = 1; ///< bytes that it takes, at least 1
    bool well_formed = false;
};

/// Decodes the first code point of a text that is not empty. Overlong forms, surrogates and
/// values above U+10FFFF are malformed; a malformed step takes one byte.
[[nodiscard]] code_point first_code_point(std::string_view text);

[[nodiscard]] bool is_utf8(std::string_view text);

/// The text with each malformed byte replaced by U+FFFD.
[[nodiscard]] std::string to_utf8(std::string_view text);

} // namespace lan_client
