// Text from the network made safe to show: no byte of it can steer a terminal or reorder a line.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace support {

/**
 * Shows what is not visible and what is not UTF-8 as escapes (\n, \x1b, \u{202e}).
 *
 * @param max_columns  a longer text is cut, with an ellipsis
 */
[[nodiscard]] std::string escape_for_terminal(std::string_view text, std::size_t max_columns);

/** Columns that a text takes on a terminal; made for texts that are safe already. */
[[nodiscard]] std::size_t text_columns(std::string_view text);

} // namespace support
