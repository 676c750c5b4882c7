/* Encryption and decryption of payloads. A payload is encrypted as a whole, without a header of its
 * own. */
#pragma once

#include "platform/owners.h"

#include <cstdint>

/**
 * Encrypts a payload.
 *
 * @param data          len bytes
 * @param[out] out      on success the ciphertext, a block of Malloc for the caller to Free
 * @param[out] out_len  on success its size
 * @param key           16 bytes
 * @return 0, or the cipher's code (logged)
 */
[[nodiscard]] int32_t encrpt_lan_msg(const uint8_t *data, uint32_t len, uint8_t **out,
                                     uint32_t *out_len, const uint8_t *key);

/**
 * Decrypts a payload and cuts the text behind its last closing brace.
 *
 * @param data      len bytes of ciphertext
 * @param key       16 bytes
 * @param[out] out  on success the text, NUL-terminated; else unchanged
 * @return 0; -1 the text has no closing brace; else the cipher's code (all logged)
 */
[[nodiscard]] int32_t __lan_parse_data(const uint8_t *data, uint32_t len, const uint8_t *key,
                                       platform::heap_block<char> &out);
