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

/** Who may read a file that is written. */
enum class readers {
    owner, /**< nobody else, since there may be secrets in it */
    usual, /**< those that may read the file which it replaces, or other new files of the user */
};

/**
 * Creates or replaces a file atomically.
 *
 * @throws failure that names the file
 */
void write_file(const std::string &path, std::string_view bytes, readers may_read = readers::usual);

} // namespace engr_app
