// Rows of known widths.
#include "terminal/growing_table.h"

#include "base/escape.h"
#include "terminal/screen.h"

namespace engr_app {
namespace {

constexpr std::size_t longest_cell = 300;
constexpr std::size_t gap_between_columns = 2;

} // namespace

std::string growing_table::line(const std::vector<std::string> &cells) const {
    const bool aligned = screen_.output_is_terminal();
    std::string text;
    for (std::size_t at = 0; at < cells.size(); ++at) {
        const std::string cell = escape_for_terminal(cells[at], longest_cell);
        text += cell;
        if (at + 1 == cells.size()) {
            break;
        }
        const std::size_t used = text_columns(cell);
        const std::size_t width = columns_[at].second;
        text += aligned ? std::string((width > used ? width - used : 0) + gap_between_columns, ' ')
                        : "\t";
    }
    return (aligned ? escape_for_terminal(text, screen_.columns()) : text) + '\n';
}

void growing_table::add(const std::vector<std::string> &cells) {
    if (!has_rows_) {
        has_rows_ = true;
        std::vector<std::string> header;
        for (const column &one : columns_) {
            header.push_back(one.first);
        }
        const std::string shown = line(header);
        screen_.output(bold_header_ ? "\x1b[1m" + shown + "\x1b[0m" : shown);
    }
    screen_.output(line(cells));
}

} // namespace engr_app
