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
    return character >= ' ' && character <= '~';
}

} // namespace

// Beyond ASCII's printable characters and the line ends between members there is nothing but the
// content of texts, so an escape is valid wherever one is needed.
std::string visible_json(std::string_view written) {
    std::string out;
    out.reserve(written.size());
    while (!written.empty()) {
        const auto *const end = std::find_if_not(written.begin(), written.end(), is_plain);
        const auto plain_bytes = static_cast<std::size_t>(end - written.begin());
        out += written.substr(0, plain_bytes);
        written.remove_prefix(plain_bytes);
        if (written.empty()) {
            break;
        }
        const code_point next = first_code_point(written);
        if (next.value != '\n' && !is_visible(next.value)) {
            out += json_escape(next.value);
        } else {
            out += written.substr(0, next.bytes);
        }
        written.remove_prefix(next.bytes);
    }
    return out;
}

} // namespace support
