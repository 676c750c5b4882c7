#include "support/utf8.h"

#include <algorithm>

#include <utf8proc.h>

namespace support {

code_point first_code_point(std::string_view text) {
    constexpr std::size_t longest = 4;
    utf8proc_int32_t value = 0;
    const utf8proc_ssize_t bytes =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                         static_cast<utf8proc_ssize_t>(std::min(text.size(), longest)), &value);
    return bytes > 0
               ? code_point{static_cast<char32_t>(value), static_cast<std::size_t>(bytes), true}
               : code_point{};
}

bool is_utf8(std::string_view text) {
    const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    for (;;) {
        // Most of a text; a call for each of its characters takes many times longer.
        const auto other = std::find_if_not(text.begin(), text.end(), is_ascii);
        text.remove_prefix(static_cast<std::size_t>(other - text.begin()));
        if (text.empty()) {
            return true;
        }
        const code_point first = first_code_point(text);
        if (!first.is_valid) {
            return false;
        }
        text.remove_prefix(first.bytes);
    }
}

std::string valid_utf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const code_point first = first_code_point(text);
        valid.append(first.is_valid ? text.substr(0, first.bytes) : "\uFFFD");
        text.remove_prefix(first.bytes);
    }
    return valid;
}

bool is_visible(char32_t character) {
    const auto code = static_cast<utf8proc_int32_t>(character);
    const utf8proc_property_t *property = utf8proc_get_property(code);
    switch (property->category) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_CN:
    case UTF8PROC_CATEGORY_CO:
    case UTF8PROC_CATEGORY_CS:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
        return false;
    default:
        // The selectors choose between the forms of a symbol, as of one that is also an emoji.
        return property->ignorable == 0 || (code >= 0xFE00 && code <= 0xFE0F);
    }
}

std::size_t columns_of(char32_t character) {
    const auto code = static_cast<utf8proc_int32_t>(character);
    // A spacing mark has a column of its own, beside the character that it belongs to.
    const int least = utf8proc_category(code) == UTF8PROC_CATEGORY_MC ? 1 : 0;
    return static_cast<std::size_t>(std::max(least, utf8proc_charwidth(code)));
}

} // namespace support
