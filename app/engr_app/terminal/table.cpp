// Choosing, sorting and writing rows.
#include "terminal/table.h"

#include "base/escape.h"
#include "base/failure.h"

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace engr_app {
namespace {

constexpr std::size_t table_gap = 2;
// No text of a gateway needs more in a table.
constexpr std::size_t max_table_cell_columns = 300;
// A column that gives way keeps so much.
constexpr std::size_t least_columns = 8;
constexpr std::size_t least_sentence_columns = 30;

constexpr const char *bold_style = "\x1b[1m";
constexpr const char *green_style = "\x1b[32m";
constexpr const char *red_style = "\x1b[31m";
constexpr const char *no_style = "\x1b[0m";

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(), [](char one) {
        return one >= 'A' && one <= 'Z' ? static_cast<char>(one - 'A' + 'a') : one;
    });
    return text;
}

std::size_t column_index(const table &in, const std::string &name) {
    const auto found = std::ranges::find_if(
        in.header, [&name](const std::string &column) { return same_column(column, name); });
    if (found == in.header.end()) {
        throw wrong_usage(fmt::format("this table has no column {}; it has {}", name,
                                      fmt::join(in.header, ", ")));
    }
    return static_cast<std::size_t>(found - in.header.begin());
}

std::string csv_cell(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char character : text) {
        quoted += character;
        quoted += character == '"' ? "\"" : "";
    }
    return quoted + '"';
}

std::string tab_cell(const std::string &text) {
    return escape_for_terminal(text, max_table_cell_columns);
}

std::string joined(const table_row &cells, const char *separator,
                   std::string (*cell_text)(const std::string &)) {
    std::string line;
    for (const std::string &cell : cells) {
        line += (&cell == &cells.front() ? "" : separator) + cell_text(cell);
    }
    return line + '\n';
}

bool is_state(const std::string &column) {
    return column == "STATE";
}

// Such a text has its place at the end of a row, and is broken rather than cut.
bool is_sentence(const std::string &column) {
    return column == "WHAT";
}

std::vector<std::string> broken_at_blanks(const std::string &text, std::size_t columns) {
    std::vector<std::string> lines;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!lines.empty() && text_columns(lines.back()) + 1 + text_columns(word) <= columns) {
            lines.back() += ' ' + word;
        } else {
            lines.push_back(escape_for_terminal(word, columns));
        }
    }
    return lines;
}

// The width of each column; the sum fits where that is possible.
std::vector<std::size_t> widths_of(const table &shown, const table_view &view,
                                   std::size_t columns) {
    std::vector<std::size_t> widths(shown.header.size(), 0);
    const auto widen = [&widths](const table_row &cells) {
        for (std::size_t at = 0; at < cells.size(); ++at) {
            widths[at] = std::max(widths[at], text_columns(cells[at]));
        }
    };
    if (view.header) {
        widen(shown.header);
    }
    std::ranges::for_each(shown.rows, widen);
    std::size_t sum = table_gap * (widths.empty() ? 0 : widths.size() - 1);
    for (const std::size_t width : widths) {
        sum += width;
    }
    for (std::size_t at = widths.size(); at > 0 && sum > columns; --at) {
        std::size_t &width = widths[at - 1];
        const std::string &name = shown.header[at - 1];
        const std::size_t least = is_sentence(name) ? least_sentence_columns : least_columns;
        if (!is_state(name) && width > least) {
            const std::size_t given_way = std::min(sum - columns, width - least);
            width -= given_way;
            sum -= given_way;
        }
    }
    return widths;
}

const char *colour_of(const std::string &state) {
    return state == "online" ? green_style : state == "offline" ? red_style : "";
}

} // namespace

bool same_column(const std::string &one, const std::string &other) {
    return lower(one) == lower(other);
}

table apply(const table_view &view, table whole) {
    for (const auto &[column, text] : view.filters) {
        const std::size_t at = column_index(whole, column);
        const std::string wanted = lower(text);
        std::erase_if(whole.rows, [&](const table_row &cells) {
            return lower(cells[at]).find(wanted) == std::string::npos;
        });
    }
    if (!view.sort_by.empty()) {
        const std::size_t at = column_index(whole, view.sort_by);
        std::ranges::stable_sort(whole.rows, [at](const table_row &one, const table_row &other) {
            return ::strverscmp(one[at].c_str(), other[at].c_str()) < 0;
        });
    }
    if (view.fields.empty()) {
        return whole;
    }
    std::vector<std::size_t> chosen;
    for (const std::string &field : view.fields) {
        chosen.push_back(column_index(whole, field));
    }
    const auto choose = [&chosen](const table_row &cells) {
        table_row kept;
        for (const std::size_t at : chosen) {
            kept.push_back(cells[at]);
        }
        return kept;
    };
    table result{choose(whole.header), {}};
    std::ranges::transform(whole.rows, std::back_inserter(result.rows), choose);
    return result;
}

std::string table_text(const table &shown, const table_view &view) {
    const char *separator = view.csv ? "," : "\t";
    const auto cell_text = view.csv ? csv_cell : tab_cell;
    std::string text = view.header ? joined(shown.header, separator, cell_text) : "";
    for (const table_row &cells : shown.rows) {
        text += joined(cells, separator, cell_text);
    }
    return text;
}

std::string table_for_terminal(const table &shown, const table_view &view, std::size_t columns,
                               bool colour) {
    table safe = shown;
    const auto make_safe = [](table_row &cells) {
        std::ranges::transform(cells, cells.begin(), tab_cell);
    };
    make_safe(safe.header);
    std::ranges::for_each(safe.rows, make_safe);
    const std::vector<std::size_t> widths = widths_of(safe, view, columns);
    const auto line_of = [&](const table_row &cells, bool is_header) {
        std::string line;
        std::size_t indent = 0;
        for (std::size_t at = 0; at < cells.size(); ++at) {
            const bool is_last = at + 1 == cells.size();
            if (is_last && !is_header && is_sentence(safe.header[at])) {
                const auto broken = broken_at_blanks(cells[at], widths[at]);
                line += fmt::format("{}", fmt::join(broken, '\n' + std::string(indent, ' ')));
                break;
            }
            indent += widths[at] + table_gap;
            const std::string cell = escape_for_terminal(cells[at], widths[at]);
            const char *style = !colour                     ? ""
                                : is_header                 ? bold_style
                                : is_state(safe.header[at]) ? colour_of(cell)
                                                            : "";
            line += *style == '\0' ? cell : style + cell + no_style;
            if (!is_last) {
                line.append(widths[at] + table_gap - text_columns(cell), ' ');
            }
        }
        return line + '\n';
    };
    std::string text = view.header ? line_of(safe.header, true) : "";
    for (const table_row &cells : safe.rows) {
        text += line_of(cells, false);
    }
    return text;
}

} // namespace engr_app
