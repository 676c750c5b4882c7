// The lines of a session file, written and read. docs/session_files.md describes them.
#pragma once

#include "session/event.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace session {

/** The version of the format. */
inline constexpr int format_version = 1;

/** Longest line, without its line feed: a frame of the longest kind in hexadecimal digits. */
inline constexpr std::size_t line_bytes_max = 32 * 1024 * 1024;

/** The first line of a file, without line feed. */
[[nodiscard]] std::string line_of(const header &from);
/** The line of an event, without line feed. */
[[nodiscard]] std::string line_of(const event &from);

/**
 * Reads a header. What is unknown, missing or of another type is an error.
 *
 * @param place  what messages begin with, such as "FILE: line 1"
 * @throws support::input_error
 */
[[nodiscard]] header read_header(std::string_view line, const std::string &place);
/** The same for an event. */
[[nodiscard]] event read_event(std::string_view line, const std::string &place);

} // namespace session
