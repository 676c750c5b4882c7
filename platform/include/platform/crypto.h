/* Ciphers and digests. All of these may be called on any thread and do not block. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    AES128_KEY_SIZE = 16,   /**< bytes of a key */
    AES128_BLOCK_SIZE = 16, /**< bytes of a block */
    MD5_DIGEST_SIZE = 16    /**< bytes of a digest */
};

/**
 * Encrypts with AES-128 in ECB mode (FIPS 197, SP 800-38A) after padding by PKCS#7 (RFC 5652, 6.3).
 *
 * @param input               bytes to encrypt; may be null when input_length is 0
 * @param input_length        their number, below 2^32 - 16
 * @param[out] output         on success a buffer of Malloc, released by the caller with Free; else
 *     unchanged
 * @param[out] output_length  on success its size: input_length rounded up to the next larger
 *     multiple of 16
 * @param key                 16 bytes
 * @return 0; -2 a required argument is absent or too long; -3 no memory
 */
int32_t aes128_ecb_encode(const uint8_t *input, uint32_t input_length, uint8_t **output,
                          uint32_t *output_length, const uint8_t *key);

/**
 * The inverse. The padding is verified.
 *
 * @param input               ciphertext
 * @param input_length        its size; 0 or no multiple of 16 is an error
 * @param[out] output         on success a buffer of Malloc with the plaintext and one 0 byte behind
 *     it, released by the caller with Free; else unchanged
 * @param[out] output_length  on success the size of the plaintext without that 0 byte
 * @param key                 16 bytes
 * @return 0; -2 a required argument is absent; -3 no memory; -4 empty or ragged ciphertext; -5 the
 *     padding is wrong
 */
int32_t aes128_ecb_decode(const uint8_t *input, uint32_t input_length, uint8_t **output,
                          uint32_t *output_length, const uint8_t *key);

/** State of one MD5 computation (RFC 1321). Needs no release. */
typedef struct {
    uint64_t opaque[16]; /**< the port's; large enough for any implementation we know of */
} uni_md5_context_t;

/** Begins a digest. */
void uni_md5_init(uni_md5_context_t *context);
/** Adds bytes. */
void uni_md5_update(uni_md5_context_t *context, const uint8_t *bytes, uint32_t length);
/** Ends the digest and stores its 16 bytes. */
void uni_md5_final(uni_md5_context_t *context, uint8_t digest[MD5_DIGEST_SIZE]);

/**
 * CRC-32 of IEEE 802.3 (reflected polynomial 0xEDB88320, initial value and final inversion all
 * ones), as in zlib's crc32().
 *
 * @param buffer  bytes; may be null when length is 0
 * @param length  how many of them; sixteen bits, as the frame's builders count
 */
uint32_t hash_crc32i_total(const void *buffer, uint16_t length);

#ifdef __cplusplus
}
#endif
