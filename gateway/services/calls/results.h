// Result codes of the services' own failures.
#pragma once

#include <cstdint>

namespace gateway {

constexpr int32_t result_failed = -1;
constexpr int32_t result_argument = -2; /**< a required argument is absent */
constexpr int32_t result_not_text = -6; /**< what was decrypted is no text */

} // namespace gateway
