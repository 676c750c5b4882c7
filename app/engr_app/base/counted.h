// Numbers of things in sentences.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace engr_app {

/**
 * @param noun  one whose plural is made with an s
 * @return "1 device", "36 devices"
 */
[[nodiscard]] inline std::string counted(uint64_t count, std::string_view noun) {
    return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

} // namespace engr_app
