// The terminal that a program writes to.
#pragma once

#include <cstddef>
#include <optional>

namespace support {

/** Columns of a terminal; nothing for a pipe or a file, or when they are not known. */
[[nodiscard]] std::optional<std::size_t> terminal_columns(int descriptor);

} // namespace support
