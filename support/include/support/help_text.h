// Help in the width of the terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace support {

/** Columns that help may take: those of the terminal, 80 in a pipe. */
[[nodiscard]] std::size_t help_columns();

/**
 * Breaks a text at blanks.
 *
 * @param indent  of all lines but the first, which has `used` columns already
 * @return the lines, each with its end
 */
[[nodiscard]] std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent,
                                  std::size_t used);

/** An option or a verb, and behind its name what it does. */
[[nodiscard]] std::string help_entry(const std::string &name, std::string_view text,
                                     std::size_t columns);

/** As in "-q, --quiet", "--gateway ADDRESS" or "FILE". */
[[nodiscard]] std::string option_name(const CLI::Option &option);

/**
 * Lays out the help of a program, or of one of its verbs: its options, then the verbs that it has.
 * Wrong usage gets one line that names the program.
 *
 * @param usage  as in "engr_gatewayd [OPTIONS]"
 */
void set_program_help(CLI::App &app, const std::string &usage);

} // namespace support
