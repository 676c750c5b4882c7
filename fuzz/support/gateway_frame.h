// Frames as a gateway sends them, written out apart from the codec that reads them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace fuzz {

/** @param words  between the length and the payload: ret, or ret, count and number of a segment */
[[nodiscard]] std::string gateway_frame(uint32_t number, uint32_t type,
                                        std::initializer_list<uint32_t> words,
                                        std::string_view payload);

} // namespace fuzz
