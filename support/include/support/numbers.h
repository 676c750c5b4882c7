// Whole numbers and hexadecimal digits as people type them.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace support {

/**
 * Reads a whole number in decimal digits, with nothing before or behind it.
 *
 * @return nothing when the text is something else or does not fit the type
 */
template <std::integral Number>
[[nodiscard]] std::optional<Number> whole_number(std::string_view text) {
    Number number{};
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/** Throws the input_error that names what was wanted, its text and the bounds. */
[[noreturn]] void refuse_number(std::string_view what, std::string_view text, int64_t lowest,
                                uint64_t highest);

/**
 * Reads a whole number that has to fit its type.
 *
 * @param what  its name, for the message
 * @throws input_error
 */
template <std::integral Number>
[[nodiscard]] Number need_whole_number(std::string_view what, std::string_view text) {
    const std::optional<Number> number = whole_number<Number>(text);
    if (!number) {
        refuse_number(what, text, std::numeric_limits<Number>::min(),
                      std::numeric_limits<Number>::max());
    }
    return *number;
}

/** The bytes as lower-case hexadecimal digits, two each. */
[[nodiscard]] std::string to_hex(std::string_view bytes);

/**
 * Reads bytes that are written as two hexadecimal digits each, in either letter case.
 *
 * @param what  its name, for the message
 * @throws input_error that tells the first character that does not fit
 */
[[nodiscard]] std::string from_hex(std::string_view what, std::string_view digits);

} // namespace support
