// UTF-8, read by utf8proc.
#include "utf8.h"

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

} // namespace

std::string to_utf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const std::size_t bytes = code_point_bytes(text);
        valid += bytes != 0 ? text.substr(0, bytes) : "\uFFFD";
        text.remove_prefix(bytes != 0 ? bytes : 1);
    }
    return valid;
}

bool is_utf8(std::string_view text) {
    return to_utf8(text) == text;
}

} // namespace lan_client
