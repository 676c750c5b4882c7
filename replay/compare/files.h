// Session files, read and written as a whole.
#pragma once

#include "compare/recording.h"

#include <string>

namespace replay {

/** Most events of a session that is read: a day of ten busy apps. */
constexpr std::size_t events_max = 5'000'000;

/**
 * Reads a session file.
 *
 * @throws support::input_error that says what is wrong, and where
 */
[[nodiscard]] recording read_recording(const std::string &file);

/** A session file. */
[[nodiscard]] std::string text_of(const recording &of);

/**
 * Writes a file, in the place of one that is there.
 *
 * @param name  "-" is standard output
 * @throws std::runtime_error  it can't be written
 */
void write_file(const std::string &name, const std::string &content);

} // namespace replay
