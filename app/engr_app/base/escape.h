// Text from the network made safe to show: no byte of it can steer a terminal or reorder a line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace engr_app {

/// Shows control characters, malformed UTF-8 and characters that are invisible or turn the
/// direction of writing as escapes (\n, \x1b, \u{202e}), and cuts the text with an ellipsis so
/// that it takes at most `max_columns` columns.
[[nodiscard]] std::string escape_for_terminal(std::string_view text, std::size_t max_columns);

/// Whether a terminal could obey this character, or a reader miss it.
[[nodiscard]] bool is_unsafe(char32_t character);

/// Columns that a text takes on a terminal; made for texts that are safe already.
[[nodiscard]] std::size_t text_columns(std::string_view text);

} // namespace engr_app
