// Two lines under each other, with the part marked in which they differ.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace replay {

/** Two lines and the marks below them. */
struct contrast {
    std::string first;
    std::string second;
    std::string marks; /**< "^" below what differs */
};

/**
 * Puts two different lines of printable ASCII under each other. What is alike at their begin and
 * does not fit gives way to "...", as does what is too long at their end.
 *
 * @param columns  most columns of a line; at least 20
 */
[[nodiscard]] contrast contrast_of(std::string_view first, std::string_view second,
                                   std::size_t columns);

} // namespace replay
