#include "store/md5_text.h"

#include <string_view>

namespace gateway {

std::string md5_text(uni_md5_context_t &context) {
    constexpr std::string_view digits = "0123456789abcdef";
    uint8_t digest[MD5_DIGEST_SIZE];
    uni_md5_final(&context, digest);
    std::string text;
    for (const uint8_t byte : digest) {
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

} // namespace gateway
