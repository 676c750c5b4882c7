/*
 * Ciphers and digests of a new port.
 * Needs: nothing of the board. Either link engr_platform_common, which does all of this over nettle
 * and zlib, and drop this file, or call the board's own AES, MD5 and CRC units here.
 */
#include "platform/crypto.h"

#include <cstring>

int32_t aes128_ecb_encode(const uint8_t *, uint32_t, uint8_t **, uint32_t *, const uint8_t *) {
    return -2;
}
int32_t aes128_ecb_decode(const uint8_t *, uint32_t, uint8_t **, uint32_t *, const uint8_t *) {
    return -2;
}
void uni_md5_init(uni_md5_context_t *) {}
void uni_md5_update(uni_md5_context_t *, const uint8_t *, uint32_t) {}
void uni_md5_final(uni_md5_context_t *, uint8_t digest[MD5_DIGEST_SIZE]) {
    std::memset(digest, 0, MD5_DIGEST_SIZE);
}
uint32_t hash_crc32i_total(const void *, uint16_t) {
    return 0;
}
