#include "support/gateway_frame.h"

#include <zlib.h>

namespace fuzz {
namespace {

std::string word_bytes(uint32_t word) {
    return {static_cast<char>(word >> 24U), static_cast<char>(word >> 16U),
            static_cast<char>(word >> 8U), static_cast<char>(word)};
}

} // namespace

std::string gateway_frame(uint32_t number, uint32_t type, std::initializer_list<uint32_t> words,
                          std::string_view payload) {
    const auto length = static_cast<uint32_t>(words.size() * 4 + payload.size() + 8);
    std::string bytes =
        word_bytes(0x55AA) + word_bytes(number) + word_bytes(type) + word_bytes(length);
    for (const uint32_t word : words) {
        bytes += word_bytes(word);
    }
    bytes += payload;
    const auto covered = static_cast<uInt>(bytes.size() & 0xFFFFU);
    const auto crc = crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), covered);
    return bytes + word_bytes(static_cast<uint32_t>(crc)) + word_bytes(0xAA55);
}

} // namespace fuzz
