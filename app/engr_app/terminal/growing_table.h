// A table whose rows are shown as they come in.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace engr_app {

class screen;

/** Aligned in columns of fixed widths on a terminal, else separated by tabs. */
class growing_table {
  public:
    /** A column, and the width that its cells need at most on a terminal. */
    using column = std::pair<std::string, std::size_t>;

    /** Nothing is shown before the first row. */
    growing_table(screen &shown_on, bool bold_header, std::vector<column> columns)
        : screen_(shown_on), bold_header_(bold_header), columns_(std::move(columns)) {}

    /** Shows a row; cells may hold what a gateway sent. @throws failure when it can't be written */
    void add(const std::vector<std::string> &cells);

  private:
    [[nodiscard]] std::string line(const std::vector<std::string> &cells) const;

    screen &screen_;
    bool bold_header_;
    std::vector<column> columns_;
    bool has_rows_ = false;
};

} // namespace engr_app
