// Files of the working directory that only the gateway's own user may read.
#pragma once

#include <string>
#include <string_view>

namespace gateway {

/**
 * Reads a regular file; a link is not followed, and nothing that waits for somebody else is opened.
 *
 * @throws refused  it is none, cannot be read, or has more than bytes_max bytes
 */
std::string read_regular_file(const std::string &name, std::size_t bytes_max);
/**
 * Writes a new file, in the place of any other of that name; what fails leaves none.
 *
 * @throws refused
 */
void write_private_file(const std::string &name, std::string_view content);
/**
 * As write_private_file, but whole or not at all, lastingly: what stood under the name stays until
 * the new content is on the disk.
 *
 * @throws refused
 */
void replace_private_file(const std::string &name, std::string_view content);
/**
 * Makes names lasting that were changed in the working directory.
 *
 * @return whether it could
 */
bool flush_directory();

} // namespace gateway
