// Differences as a table, one a line.
#pragma once

#include "compare/comparison.h"

#include <cstddef>
#include <span>
#include <string>

namespace replay {

/** What the sides are called. */
struct side_names {
    std::string expected;
    std::string got;
};

/**
 * A table: when, what, and what each side says, cut so that the difference shows.
 *
 * @param rows_max  most rows; a last line tells how many more there are
 * @param columns   of a line
 */
[[nodiscard]] std::string difference_table(std::span<const difference> of, const side_names &sides,
                                           std::size_t rows_max, std::size_t columns);

} // namespace replay
