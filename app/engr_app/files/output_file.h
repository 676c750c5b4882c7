// Files that a verb writes.
#pragma once

#include <string>
#include <string_view>

namespace engr_app {

/**
 * Checks before work that can't be repeated whether its output file can be created.
 *
 * @param overwrite  a regular file may be there already
 * @throws failure of wrong usage
 */
void check_output_path(const std::string &path, bool overwrite);

/**
 * Creates or replaces a file atomically. Only its owner may read it.
 *
 * @throws failure that names the file
 */
void write_file(const std::string &path, std::string_view bytes);

} // namespace engr_app
