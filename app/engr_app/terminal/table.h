// Tables: the rows and columns that are wanted, and their text.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace engr_app {

using table_row = std::vector<std::string>;

/** A table whose rows have as many cells as the header. */
struct table {
    table_row header;
    std::vector<table_row> rows;
};

/** How a table is wanted. Columns are named as in its header; letter case doesn't matter. */
struct table_view {
    std::vector<std::string> fields = {}; /**< columns in this order; empty: all */
    std::string sort_by = {}; /**< column; numbers in it count as such. Empty: as it came */
    /** Column and text: only rows with that text in the column, in any letter case. */
    std::vector<std::pair<std::string, std::string>> filters = {};
    bool header = true;
    bool csv = false; /**< as RFC 4180 has it, but with single line feeds */

    [[nodiscard]] bool operator==(const table_view &) const = default;

    /** @return whether nobody has asked for a shape, so that a sentence may stand for no rows */
    [[nodiscard]] bool is_usual() const { return *this == table_view(); }
};

/** @return whether two columns have the same name */
[[nodiscard]] bool same_column(const std::string &one, const std::string &other);

/** @throws failure of wrong usage when it has none of the columns that the view names */
[[nodiscard]] table apply(const table_view &view, table whole);

/** @return the text for another program: separated by tabs, or CSV */
[[nodiscard]] std::string table_text(const table &shown, const table_view &view);

/**
 * The text for a terminal, in aligned columns. Where it is too wide the columns to the right give
 * way first, but never STATE, which comes in colour. Sentences, in a last column WHAT, are broken
 * into lines.
 */
[[nodiscard]] std::string table_for_terminal(const table &shown, const table_view &view,
                                             std::size_t columns, bool colour);

} // namespace engr_app
