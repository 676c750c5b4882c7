/* AES-128 in ECB mode with PKCS#7 padding, over nettle. */
#include "platform/crypto.h"

#include "platform/memory.h"

#include <nettle/aes.h>

#include <algorithm>
#include <cstring>

namespace {

enum result : int32_t {
    result_ok = 0,
    result_argument = -2,
    result_no_memory = -3,
    result_ragged = -4,
    result_padding = -5
};

/** Length of the padding at the end of a plaintext of whole blocks; 0 when it is wrong. */
uint32_t padding_length(const uint8_t *plaintext, uint32_t length) {
    const uint8_t padding = plaintext[length - 1];
    if (padding == 0 || padding > AES128_BLOCK_SIZE) {
        return 0;
    }
    const uint8_t *end = plaintext + length;
    const bool uniform =
        std::all_of(end - padding, end, [padding](uint8_t byte) { return byte == padding; });
    return uniform ? padding : 0;
}

/** The schedule of the key that a thread encrypts with: making it takes longer than a short text.
 * It is kept, since the key hardly ever changes. */
class encryption_schedule {
  public:
    const aes128_ctx &of(const uint8_t *key) {
        if (!is_made_ || std::memcmp(key_, key, sizeof key_) != 0) {
            aes128_set_encrypt_key(&context_, key);
            std::memcpy(key_, key, sizeof key_);
            is_made_ = true;
        }
        return context_;
    }

  private:
    bool is_made_ = false;
    uint8_t key_[AES128_KEY_SIZE] = {};
    aes128_ctx context_{};
};

thread_local constinit encryption_schedule schedule;

} // namespace

int32_t aes128_ecb_encode(const uint8_t *input, uint32_t input_length, uint8_t **output,
                          uint32_t *output_length, const uint8_t *key) {
    if (output == nullptr || output_length == nullptr || key == nullptr ||
        (input == nullptr && input_length != 0) || input_length >= UINT32_MAX - AES128_BLOCK_SIZE) {
        return result_argument;
    }
    const auto padding = static_cast<uint8_t>(AES128_BLOCK_SIZE - input_length % AES128_BLOCK_SIZE);
    const uint32_t padded_length = input_length + padding;
    auto *buffer = static_cast<uint8_t *>(Malloc(padded_length));
    if (buffer == nullptr) {
        return result_no_memory;
    }
    const uint32_t last_length = AES128_BLOCK_SIZE - padding;
    const uint32_t before_last = input_length - last_length;
    uint8_t last[AES128_BLOCK_SIZE];
    std::memset(last, padding, sizeof last);
    if (last_length != 0) {
        std::memcpy(last, input + before_last, last_length);
    }

    const aes128_ctx &context = schedule.of(key);
    aes128_encrypt(&context, before_last, buffer, input);
    aes128_encrypt(&context, sizeof last, buffer + before_last, last);
    *output = buffer;
    *output_length = padded_length;
    return result_ok;
}

int32_t aes128_ecb_decode(const uint8_t *input, uint32_t input_length, uint8_t **output,
                          uint32_t *output_length, const uint8_t *key) {
    if (output == nullptr || output_length == nullptr || key == nullptr ||
        (input == nullptr && input_length != 0)) {
        return result_argument;
    }
    if (input_length == 0 || input_length % AES128_BLOCK_SIZE != 0) {
        return result_ragged;
    }
    auto *buffer = static_cast<uint8_t *>(Malloc(size_t{input_length} + 1));
    if (buffer == nullptr) {
        return result_no_memory;
    }

    aes128_ctx context;
    aes128_set_decrypt_key(&context, key);
    aes128_decrypt(&context, input_length, buffer, input);
    const uint32_t padding = padding_length(buffer, input_length);
    if (padding == 0) {
        Free(buffer);
        return result_padding;
    }
    buffer[input_length - padding] = 0;
    *output = buffer;
    *output_length = input_length - padding;
    return result_ok;
}
