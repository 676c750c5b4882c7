// Output for people and for scripts.
#include "console.h"

#include "failure.h"
#include "json_text.h"
#include "safe_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <unistd.h>

namespace engr_app {
namespace {

constexpr std::size_t default_columns = 100;
constexpr std::size_t narrowest_columns = 40;
constexpr std::size_t column_gap = 2;
// Nothing that a gateway says in a table, a line or a sentence is worth more.
constexpr std::size_t max_cell_columns = 300;
constexpr std::size_t max_line_columns = 2000;

std::size_t terminal_columns(int descriptor) {
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
        return default_columns;
    }
    return std::max<std::size_t>(size.ws_col, narrowest_columns);
}

std::string padded(std::string text, std::size_t columns) {
    const std::size_t used = text_columns(text);
    text.append(columns > used ? columns - used : 0, ' ');
    return text;
}

} // namespace

console::console(bool json, bool quiet_notices)
    : json_(json), output_is_terminal_(isatty(STDOUT_FILENO) == 1),
      messages_on_terminal_(isatty(STDERR_FILENO) == 1 && !quiet_notices),
      colour_(output_is_terminal_ && std::getenv("NO_COLOR") == nullptr),
      columns_(output_is_terminal_ ? terminal_columns(STDOUT_FILENO) : default_columns) {}

void console::table(const row &header, const std::vector<row> &rows) {
    std::vector<row> lines{header};
    lines.insert(lines.end(), rows.begin(), rows.end());
    std::vector<std::size_t> widths(header.size(), 0);
    for (row &cells : lines) {
        for (std::size_t column = 0; column < cells.size(); ++column) {
            cells[column] = safe_text(cells[column], max_cell_columns);
            widths[column] = std::max(widths[column], text_columns(cells[column]));
        }
    }
    for (std::size_t number = 0; number < lines.size(); ++number) {
        std::string shown;
        for (std::size_t column = 0; column < lines[number].size(); ++column) {
            const bool last = column + 1 == lines[number].size();
            std::string &cell = lines[number][column];
            if (!output_is_terminal_) {
                shown += cell + (last ? "" : "\t");
            } else {
                shown += last ? cell : padded(cell, widths[column] + column_gap);
            }
        }
        if (output_is_terminal_) {
            shown = safe_text(shown, columns_);
        }
        const bool bold = colour_ && number == 0;
        std::cout << (bold ? "\x1b[1m" : "") << shown << (bold ? "\x1b[0m" : "") << '\n';
    }
    check_output();
}

void console::facts(const std::vector<std::pair<std::string, std::string>> &named) {
    std::size_t widest = 0;
    for (const auto &[name, value] : named) {
        widest = std::max(widest, name.size());
    }
    for (const auto &[name, value] : named) {
        std::cout << padded(name + ":", widest + 1 + column_gap)
                  << safe_text(value, max_cell_columns) << '\n';
    }
    check_output();
}

void console::line(std::string_view text) {
    std::cout << safe_text(text, max_line_columns) << '\n';
    check_output();
}

void console::text(std::string_view text) {
    if (!output_is_terminal_) {
        std::cout << text << '\n';
        return check_output();
    }
    // Lines stay lines.
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::cout << safe_text(text.substr(0, end), max_line_columns) << '\n';
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    check_output();
}

void console::document(const nlohmann::json &value) {
    document_written_ = true;
    std::cout << value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    check_output();
}

void console::json_line(const nlohmann::json &value) {
    document_written_ = true;
    std::cout << one_line(value) << '\n';
    check_output();
}

void console::progress(std::string_view sentence) {
    if (messages_on_terminal_) {
        std::cerr << safe_text(sentence, max_line_columns) << '\n';
    }
}

void console::notice(std::string_view sentence) {
    std::cerr << safe_text(sentence, max_line_columns) << '\n';
}

void console::trace(std::string_view text) {
    std::cerr << safe_text(text, max_cell_columns) << '\n';
}

void console::problem(const std::string &kind, std::string_view sentence) {
    if (json_ && !document_written_) {
        document_written_ = true;
        std::cout << nlohmann::json{{"error", {{"kind", kind}, {"message", sentence}}}}.dump(
                         2, ' ', false, nlohmann::json::error_handler_t::replace)
                  << '\n'
                  << std::flush;
    }
    std::cerr << "engr_app: " << safe_text(sentence, max_line_columns) << '\n';
}

// A result that could not be written is no result.
void console::check_output() {
    std::cout.flush();
    if (!std::cout) {
        throw failure("output",
                      std::string("standard output can't be written: ") + std::strerror(errno));
    }
}

} // namespace engr_app
