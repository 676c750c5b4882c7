#include "subjects/encryption.h"

#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "platform/crypto.h"
#include "platform/memory.h"
#include "platform/owners.h"

#include <array>
#include <cstring>

namespace gateway {
namespace {

using key = std::array<uint8_t, AES128_KEY_SIZE>;

key tcp_key() {
    key bytes{};
    static_cast<void>(engr_lan_get_tcp_key(bytes.data())); // fails only without room for the key
    return bytes;
}

} // namespace

int32_t encrypt_text(const char *text, uint8_t **output, uint32_t *output_length) {
    if (text == nullptr) {
        return result_argument;
    }
    return aes128_ecb_encode(reinterpret_cast<const uint8_t *>(text),
                             static_cast<uint32_t>(std::strlen(text)), output, output_length,
                             tcp_key().data());
}

int32_t decrypt_text(const uint8_t *payload, uint32_t length, char **text) {
    if (payload == nullptr || text == nullptr) {
        return result_argument;
    }
    platform::heap_block<uint8_t> plain;
    uint32_t plain_length = 0;
    const int32_t result =
        aes128_ecb_decode(payload, length, plain.out(), &plain_length, tcp_key().data());
    if (result != 0) {
        return result;
    }
    // A NUL inside would cut the text for every reader.
    if (std::memchr(plain.get(), 0, plain_length) != nullptr) {
        return result_not_text;
    }
    *text = reinterpret_cast<char *>(plain.release());
    return 0;
}

} // namespace gateway
