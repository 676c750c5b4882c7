#include "support/numbers.h"

#include "support/input_error.h"

#include <fmt/format.h>

namespace support {

void refuse_number(std::string_view what, std::string_view text, int64_t lowest, uint64_t highest) {
    throw input_error(
        fmt::format("{}: '{}' is not a whole number from {} to {}", what, text, lowest, highest));
}

std::string to_hex(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += {digits[value >> 4], digits[value & 0xF]};
    }
    return hex;
}

std::string from_hex(std::string_view what, std::string_view digits) {
    std::string bytes;
    bytes.reserve(digits.size() / 2);
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        const std::string_view pair = digits.substr(at, 2);
        unsigned char value = 0;
        const auto [stop, error] = std::from_chars(pair.begin(), pair.end(), value, 16);
        if (error != std::errc() || stop != pair.end() || pair.size() != 2) {
            throw input_error(fmt::format(
                "{}: expected pairs of hexadecimal digits; at character {} there is none", what,
                at + 1));
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

} // namespace support
