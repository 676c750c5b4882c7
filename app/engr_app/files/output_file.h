// Files that a verb writes.
#pragma once

#include <string>
#include <string_view>

namespace engr_app {

/**
 * Throws a failure of wrong usage when a file can't be made there; to be asked before work that
 * can't be repeated.
 */
void check_output_path(const std::string &path);

/**
 * Writes a file that exists whole or not at all; one that was there is replaced. Only its owner may
 * read it. Throws a failure that names the file.
 */
void write_file(const std::string &path, std::string_view bytes);

} // namespace engr_app
