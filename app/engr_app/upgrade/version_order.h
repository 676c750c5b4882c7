// Which of two versions is the older one.
#pragma once

#include <string>

namespace engr_app {

/**
 * Compares versions such as "2.0.10": numbers between points as numbers, missing ones as 0, other
 * parts by their characters.
 *
 * @return whether `one` is older than `other`; false when either is empty, which means unknown
 */
[[nodiscard]] bool is_older_version(const std::string &one, const std::string &other);

} // namespace engr_app
