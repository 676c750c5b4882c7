// Texts that come from standard input or from files.
#pragma once

#include <cstddef>
#include <string>

namespace engr_app {

/// Longest text that is taken from a file or from standard input, in bytes.
inline constexpr std::size_t max_input_bytes = 64 * 1024 * 1024;

/// All of standard input. It is read once, so that each of several gateways gets the same; may be
/// called on any thread.
[[nodiscard]] const std::string &standard_input();

/// All of a file, or of standard input for "-". Throws a failure that names the file, with the
/// exit code for wrong usage, when it can't be read.
[[nodiscard]] std::string file_text(const std::string &path);

} // namespace engr_app
