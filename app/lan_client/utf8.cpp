// UTF-8, read by utf8proc.
#include "utf8.h"

#include <algorithm>
#include <cstddef>

#include <utf8proc.h>

namespace lan_client {
namespace {

/** Bytes of the valid code point at the start of a text that is not empty; 0: there is none. */
std::size_t code_point_bytes(std::string_view text) {
    utf8proc_int32_t ignored = 0;
    const utf8proc_ssize_t bytes =
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t *>(text.data()),
                         static_cast<utf8proc_ssize_t>(text.size()), &ignored);
    return bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
}

std::size_t ascii_bytes(std::string_view text) {
    const auto *const end = std::ranges::find_if(
        text, [](char one) { return static_cast<unsigned char>(one) >= 0x80; });
    return static_cast<std::size_t>(end - text.begin());
}

/** Bytes up to the first that is not part of valid UTF-8. Nearly all texts are ASCII throughout. */
std::size_t valid_bytes(std::string_view text) {
    std::size_t valid = 0;
    for (;;) {
        valid += ascii_bytes(text.substr(valid));
        const std::size_t next = valid < text.size() ? code_point_bytes(text.substr(valid)) : 0;
        if (next == 0) {
            return valid;
        }
        valid += next;
    }
}

} // namespace

std::string to_utf8(std::string_view text) {
    std::string valid;
    for (;;) {
        const std::size_t bytes = valid_bytes(text);
        valid += text.substr(0, bytes);
        if (bytes == text.size()) {
            return valid;
        }
        valid += "\uFFFD";
        text.remove_prefix(bytes + 1);
    }
}

bool is_utf8(std::string_view text) {
    return valid_bytes(text) == text.size();
}

} // namespace lan_client
