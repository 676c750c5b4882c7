#include "store/json_text.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

using nlohmann::json;

/** Bytes of the UTF-8 sequence at the start of the text; 0 when there is none. */
std::size_t sequence_length(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const bool overlong = (lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xF0 && byte(1) < 0x90);
    const bool beyond = (lead == 0xED && byte(1) >= 0xA0) || (lead == 0xF4 && byte(1) >= 0x90);
    return overlong || beyond ? 0 : length;
}

} // namespace

std::string json_literal(std::string_view text) {
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string valid_utf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = sequence_length(text);
        valid += length != 0 ? text.substr(0, length) : std::string_view("\xEF\xBF\xBD");
        text.remove_prefix(length != 0 ? length : 1);
    }
    return valid;
}

bool is_control(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 || code == 0x7F;
}

} // namespace gateway
