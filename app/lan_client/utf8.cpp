// Reading of UTF-8 that may be malformed.
#include "lan_client/utf8.h"

namespace lan_client {

code_point first_code_point(std::string_view text) {
    const auto byte_at = [text](std::size_t index) {
        return static_cast<unsigned char>(text[index]);
    };
    const unsigned char lead = byte_at(0);
    if (lead < 0x80) {
        return {lead, 1, true};
    }
    const std::size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < size) {
        return {};
    }
    char32_t value = lead & (0x7Fu >> size);
    for (std::size_t index = 1; index < size; ++index) {
        if ((byte_at(index) & 0xC0) != 0x80) {
            return {};
        }
        value = value << 6 | (byte_at(index) & 0x3Fu);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[size] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return {};
    }
    return {value, size, true};
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const code_point step = first_code_point(text);
        if (!step.well_formed) {
            return false;
        }
        text.remove_prefix(step.bytes);
    }
    return true;
}

std::string to_utf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const code_point step = first_code_point(text);
        out.append(step.well_formed ? text.substr(0, step.bytes) : "\xEF\xBF\xBD");
        text.remove_prefix(step.bytes);
    }
    return out;
}

} // namespace lan_client
