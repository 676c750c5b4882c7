// Input from files and standard input.
#pragma once

#include <string>

namespace engr_app {

/**
 * All of standard input. It is read once, so that each of several gateways gets the same; may be
 * called on any thread.
 *
 * @throws failure of kind "input" when it cannot be read or is longer than support::file_bytes_max
 */
[[nodiscard]] const std::string &standard_input();

/** The same for a file; "-" stands for standard input. */
[[nodiscard]] std::string file_text(const std::string &path);

} // namespace engr_app
