/* Promises of ciphers, digests and the text helper, against published vectors. */
#include "kit.h"

#include "platform/crypto.h"
#include "platform/memory.h"
#include "platform/text.h"

enum { TEXT_MAX = 80 };

static const uint8_t *bytes_of(const char *text) {
    return (const uint8_t *)text;
}

static uint8_t digit(char hex) {
    return (uint8_t)(hex <= '9' ? hex - '0' : hex - 'a' + 10);
}

static uint32_t from_hex(const char *hex, uint8_t *bytes) {
    uint32_t count = 0;
    for (; hex[0] != '\0'; hex += 2) {
        bytes[count++] = (uint8_t)(digit(hex[0]) << 4 | digit(hex[1]));
    }
    return count;
}

void crypto_aes_agrees_with_published_vectors(void) {
    static const struct {
        const char *key;
        const char *plaintext;
        const char *ciphertext;
    } vectors[] = {
        /* a key of zeros, which no schedule that was never made may stand for; FIPS 197, C.1, and
         * SP 800-38A, F.1.1 */
        {"00000000000000000000000000000000", "00000000000000000000000000000000",
         "66e94bd4ef8a2c3b884cfa59ca342b2e"},
        {"000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
         "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {"2b7e151628aed2a6abf7158809cf4f3c",
         "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51",
         "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"},
    };
    for (size_t i = 0; i < sizeof vectors / sizeof vectors[0]; ++i) {
        uint8_t key[TEXT_MAX];
        uint8_t plaintext[TEXT_MAX];
        uint8_t ciphertext[TEXT_MAX];
        uint8_t *output = NULL;
        uint32_t length = 0;
        from_hex(vectors[i].key, key);
        from_hex(vectors[i].ciphertext, ciphertext);
        const uint32_t count = from_hex(vectors[i].plaintext, plaintext);
        if (EXPECT(aes128_ecb_encode(plaintext, count, &output, &length, key) == 0,
                   "expected an encryption to return 0")) {
            EXPECT(length == count + AES128_BLOCK_SIZE, "expected %u bytes, got %u",
                   (unsigned)count + AES128_BLOCK_SIZE, (unsigned)length);
            EXPECT(memcmp(output, ciphertext, count) == 0, "expected the ciphertext of vector %u",
                   (unsigned)i);
            Free(output);
        }
    }
}

/** Decrypts a block that was encrypted without padding: what is cut off is the cipher's own. */
static int32_t decode_block(const char *block, uint8_t **output, uint32_t *length) {
    uint8_t *ciphertext = NULL;
    uint32_t count = 0;
    EXPECT(aes128_ecb_encode(bytes_of(block), AES128_BLOCK_SIZE, &ciphertext, &count,
                             bytes_of("0123456789abcdef")) == 0,
           "expected an encryption to return 0");
    const int32_t result = aes128_ecb_decode(ciphertext, AES128_BLOCK_SIZE, output, length,
                                             bytes_of("0123456789abcdef"));
    Free(ciphertext);
    return result;
}

void crypto_padding_is_complete_and_verified(void) {
    static const char key[] = "0123456789abcdef";
    static const char text[] = "0123456789012345678901234567890123";
    static const char *const wrong[] = {"twelve bytes\4\4\3\4", "fifteen bytes..\0",
                                        "fifteen bytes..\21", "fifteen bytes..\377"};
    uint8_t *output = NULL;
    uint32_t length = 0;
    for (uint32_t count = 0; count <= 33; ++count) {
        uint8_t *ciphertext = NULL;
        uint32_t size = 0;
        EXPECT(aes128_ecb_encode(count == 0 ? NULL : bytes_of(text), count, &ciphertext, &size,
                                 bytes_of(key)) == 0,
               "expected an encryption to return 0");
        EXPECT(size == (count / 16 + 1) * 16, "expected %u bytes to be padded to %u, not %u",
               (unsigned)count, (unsigned)(count / 16 + 1) * 16, (unsigned)size);
        if (EXPECT(aes128_ecb_decode(ciphertext, size, &output, &length, bytes_of(key)) == 0,
                   "expected a decryption to return 0")) {
            EXPECT(length == count && memcmp(output, text, count) == 0,
                   "expected the plaintext of %u bytes", (unsigned)count);
            EXPECT(output[length] == 0, "expected a 0 byte behind the plaintext");
            Free(output);
        }
        Free(ciphertext);
    }
    if (EXPECT(decode_block("twelve bytes\4\4\4\4", &output, &length) == 0 && length == 12,
               "expected a right padding to be taken off")) {
        Free(output);
    }
    for (size_t i = 0; i < sizeof wrong / sizeof wrong[0]; ++i) {
        const int32_t result = decode_block(wrong[i], &output, &length);
        EXPECT(result == -5, "expected wrong padding %u to be told as -5, not %d", (unsigned)i,
               (int)result);
    }
}

void crypto_a_failure_hands_nothing_out(void) {
    static const uint32_t ragged[] = {0, 1, 15, 17};
    const uint8_t *bytes = bytes_of("0123456789abcdef0123456789abcdef");
    uint8_t *output = NULL;
    uint32_t length = 7;
    for (size_t i = 0; i < sizeof ragged / sizeof ragged[0]; ++i) {
        EXPECT(aes128_ecb_decode(bytes, ragged[i], &output, &length, bytes) == -4,
               "expected %u bytes of ciphertext to be told as -4", (unsigned)ragged[i]);
    }
    EXPECT(aes128_ecb_encode(bytes, 1, NULL, &length, bytes) == -2, "expected -2 without output");
    EXPECT(aes128_ecb_encode(bytes, 1, &output, NULL, bytes) == -2, "expected -2 without length");
    EXPECT(aes128_ecb_encode(bytes, 1, &output, &length, NULL) == -2, "expected -2 without key");
    EXPECT(aes128_ecb_encode(NULL, 1, &output, &length, bytes) == -2, "expected -2 without input");
    EXPECT(aes128_ecb_decode(NULL, 16, &output, &length, bytes) == -2, "expected -2 without input");
    EXPECT(output == NULL && length == 7, "expected a failure to leave output and length");
}

void crypto_md5_agrees_with_published_vectors(void) {
    static const struct {
        const char *text;
        const char *digest;
    } vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (size_t i = 0; i < sizeof vectors / sizeof vectors[0]; ++i) {
        uni_md5_context_t context;
        uint8_t computed[MD5_DIGEST_SIZE];
        uint8_t digest[MD5_DIGEST_SIZE];
        uni_md5_init(&context);
        for (const char *at = vectors[i].text; *at != '\0'; ++at) { /* across the block's border */
            uni_md5_update(&context, bytes_of(at), 1);
        }
        uni_md5_final(&context, computed);
        from_hex(vectors[i].digest, digest);
        EXPECT(memcmp(computed, digest, MD5_DIGEST_SIZE) == 0, "expected the MD5 of '%s'",
               vectors[i].text);
    }
}

void crypto_crc_agrees_with_published_vectors(void) {
    EXPECT(hash_crc32i_total("123456789", 9) == 0xCBF43926u, "expected cbf43926, not %08x",
           (unsigned)hash_crc32i_total("123456789", 9));
    EXPECT(hash_crc32i_total(NULL, 0) == 0, "expected the CRC of no bytes to be 0");
}

void text_the_last_occurrence_is_found(void) {
    static const struct {
        const char *text;
        uint32_t start;
        int32_t index;
    } cases[] = {{"{a}b}c", 0, 4}, {"{a}b}c", 2, 2}, {"{a}", 9, -1},
                 {"abc", 0, -1},   {"", 0, -1},      {NULL, 0, -1}};
    for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
        const int32_t index = str_revr_find_ch(cases[i].text, cases[i].start, '}');
        EXPECT(index == cases[i].index, "expected case %u to be %d, not %d", (unsigned)i,
               (int)cases[i].index, (int)index);
    }
}
