#include "support/json_text.h"

#include "support/utf8.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

namespace support {
namespace {

std::string json_escape(uint32_t value) {
    if (value < 0x10000) {
        return fmt::format("\\u{:04x}", value);
    }
    const uint32_t above = value - 0x10000;
    return fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (above >> 10), 0xDC00 + (above & 0x3FF));
}

bool is_plain(char character) {
    return (character >= ' ' && character <= '~') || character == '\n';
}

} // namespace

// Beyond ASCII's printable characters and the line ends between members there is nothing but the
// content of texts, so an escape is valid wherever one is needed.
std::string visible_json(std::string written) {
    if (std::ranges::all_of(written, is_plain)) {
        return written; // nearly always
    }
    std::string out;
    out.reserve(written.size());
    for (std::string_view rest = written; !rest.empty();) {
        const auto *const end = std::ranges::find_if_not(rest, is_plain);
        const auto plain_bytes = static_cast<std::size_t>(end - rest.begin());
        out += rest.substr(0, plain_bytes);
        rest.remove_prefix(plain_bytes);
        if (rest.empty()) {
            break;
        }
        const code_point next = first_code_point(rest);
        if (is_visible(next.value)) {
            out += rest.substr(0, next.bytes);
        } else {
            out += json_escape(next.value);
        }
        rest.remove_prefix(next.bytes);
    }
    return out;
}

} // namespace support
