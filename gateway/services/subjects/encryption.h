// Encryption of data points: their JSON text with the key of the TCP channel.
#pragma once

#include <cstdint>

namespace gateway {

/**
 * Encrypts a text.
 *
 * @param output  gets a block of Malloc
 * @return 0; result_argument without a text; else the result of aes128_ecb_encode
 */
int32_t encrypt_text(const char *text, uint8_t **output, uint32_t *output_length);

/**
 * Decrypts a payload that has to be a text.
 *
 * @param text  gets a block of Malloc
 * @return 0; result_argument without a payload; result_not_text when it holds a NUL; else the
 * result of aes128_ecb_decode
 */
int32_t decrypt_text(const uint8_t *payload, uint32_t length, char **text);

} // namespace gateway
