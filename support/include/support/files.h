// Reading of whole files.
#pragma once

#include <cstddef>
#include <string>

namespace support {

/** Bytes of the longest file that is read unless a caller says otherwise. */
constexpr std::size_t file_bytes_max = 64 * 1024 * 1024;

/**
 * Reads a file, a pipe or a device to its end; waits for a writer as long as it takes.
 *
 * @throws input_error that names the file, when it cannot be read or has more bytes
 */
[[nodiscard]] std::string read_file(const std::string &name,
                                    std::size_t bytes_max = file_bytes_max);

/**
 * The same for a descriptor that is open already and stays so.
 *
 * @param name  what messages call it
 * @throws input_error
 */
[[nodiscard]] std::string read_descriptor(int descriptor, const std::string &name,
                                          std::size_t bytes_max = file_bytes_max);

} // namespace support
