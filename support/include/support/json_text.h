// JSON as it is written, for files and terminals.
#pragma once

#include <string>

namespace support {

/**
 * A JSON text whose characters that are not visible, such as control characters and direction
 * marks, are escaped (\u0085), line ends between values aside.
 *
 * @param written  valid JSON in UTF-8
 */
[[nodiscard]] std::string visible_json(std::string written);

} // namespace support
