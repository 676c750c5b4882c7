// The manual page of a program, from its own table of options.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace support {

/** The only argument of a program that is asked for its manual page. */
constexpr const char *manual_page_request = "__manual";

/**
 * Sections NAME to COMMANDS of a program's manual page, in mdoc: synopsis, description, options,
 * and each verb with its options and notes.
 *
 * @param app      the program's options; its name is set
 * @param summary  one line of what the program is
 */
std::string manual_page(const CLI::App &app, const std::string &summary);

/**
 * Prints them when they are asked for.
 *
 * @return whether they were
 */
bool answer_manual_page_request(const CLI::App &app, const std::string &summary, int count,
                                const char *const *arguments);

} // namespace support
