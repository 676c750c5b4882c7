// Contracts of ciphers, digests and the text helper, against published vectors.
#include "contract_test.h"

#include "platform/crypto.h"
#include "platform/memory.h"
#include "platform/text.h"

#include <cstring>
#include <optional>

namespace contract_tests {

namespace {

using crypto_contract = contract_test;

std::string from_hex(std::string_view hex) {
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    }
    return bytes;
}

const uint8_t *bytes_of(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

using cipher = decltype(aes128_ecb_encode);

/** Runs a cipher; nothing when it fails, with the code in result. */
std::optional<std::string> apply(cipher *run, const std::string &input, const std::string &key,
                                 int32_t &result) {
    uint8_t *output = nullptr;
    uint32_t length = 0;
    result =
        run(bytes_of(input), static_cast<uint32_t>(input.size()), &output, &length, bytes_of(key));
    if (result != 0) {
        EXPECT_EQ(output, nullptr) << "a failed call handed something out";
        return std::nullopt;
    }
    std::string bytes(reinterpret_cast<char *>(output), length);
    EXPECT_TRUE(run != aes128_ecb_decode || output[length] == 0) << "no 0 byte behind the text";
    Free(output);
    return bytes;
}

} // namespace

TEST_F(crypto_contract, aes_128_ecb_agrees_with_published_vectors) {
    port->run([&] {
        struct {
            const char *key, *plaintext, *ciphertext;
        } const vectors[] = {
            // FIPS 197, C.1, and SP 800-38A, F.1.1
            {"000102030405060708090a0b0c0d0e0f", "00112233445566778899aabbccddeeff",
             "69c4e0d86a7b0430d8cdb78070b4c55a"},
            {"2b7e151628aed2a6abf7158809cf4f3c",
             "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
             "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710",
             "3ad77bb40d7a3660a89ecaf32466ef97f5d3d58503b9699de785895a96fdbaaf"
             "43b1cd7f598ece23881b00e3ed0306887b0c785e27e8ad3f8223207104725dd4"},
        };
        for (const auto &vector : vectors) {
            int32_t result = 0;
            const std::string plaintext = from_hex(vector.plaintext);
            const auto ciphertext =
                apply(aes128_ecb_encode, plaintext, from_hex(vector.key), result);
            ASSERT_TRUE(ciphertext.has_value()) << result;
            EXPECT_EQ(ciphertext->substr(0, plaintext.size()), from_hex(vector.ciphertext));
        }
    });
}

TEST_F(crypto_contract, padding_is_complete_and_verified) {
    port->run([&] {
        const std::string key = "0123456789abcdef";
        int32_t result = 0;
        for (size_t length = 0; length <= 33; length++) {
            const std::string text(length, 'x');
            const auto ciphertext = apply(aes128_ecb_encode, text, key, result);
            ASSERT_TRUE(ciphertext.has_value());
            EXPECT_EQ(ciphertext->size(), (length / 16 + 1) * 16);
            EXPECT_EQ(apply(aes128_ecb_decode, *ciphertext, key, result), text);
        }
        // The block of padding that the cipher appends is cut off, so that the plaintext's own end
        // is taken for padding.
        const auto decode_block = [&](const std::string &block) {
            auto ciphertext = *apply(aes128_ecb_encode, block, key, result);
            return apply(aes128_ecb_decode, ciphertext.substr(0, 16), key, result);
        };
        EXPECT_EQ(decode_block("twelve bytes\4\4\4\4"), "twelve bytes");
        for (const std::string &wrong :
             {std::string("twelve bytes\4\4\3\4"), std::string(15, 'x') + '\0',
              std::string(15, 'x') + '\21', std::string(16, '\xFF')}) {
            EXPECT_EQ(decode_block(wrong), std::nullopt);
            EXPECT_EQ(result, -5);
        }
        for (const size_t ragged : {0u, 1u, 15u, 17u}) {
            EXPECT_EQ(apply(aes128_ecb_decode, std::string(ragged, 'x'), key, result),
                      std::nullopt);
            EXPECT_EQ(result, -4);
        }
        uint32_t length = 0;
        EXPECT_EQ(aes128_ecb_encode(bytes_of(key), 1, nullptr, &length, bytes_of(key)), -2);
    });
}

TEST_F(crypto_contract, md5_and_crc_32_agree_with_published_vectors) {
    port->run([&] {
        struct {
            std::string text;
            const char *digest;
        } const vectors[] = {
            {"", "d41d8cd98f00b204e9800998ecf8427e"},
            {"abc", "900150983cd24fb0d6963f7d28e17f72"},
            {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
             "57edf4a22be3c955ac49da2e2107b67a"},
        };
        for (const auto &[text, digest] : vectors) {
            uni_md5_context_t context;
            uint8_t computed[MD5_DIGEST_SIZE];
            uni_md5_init(&context);
            for (size_t i = 0; i < text.size(); i++) { // in pieces, across the block's border
                uni_md5_update(&context, bytes_of(text) + i, 1);
            }
            uni_md5_final(&context, computed);
            EXPECT_EQ(std::string(reinterpret_cast<char *>(computed), sizeof computed),
                      from_hex(digest))
                << "MD5 of '" << text << "'";
        }
        EXPECT_EQ(hash_crc32i_total("123456789", 9), 0xCBF43926u);
        EXPECT_EQ(hash_crc32i_total(nullptr, 0), 0u);
    });
}

TEST_F(crypto_contract, the_last_occurrence_of_a_character_is_found) {
    port->run([&] {
        EXPECT_EQ(str_revr_find_ch("{a}b}c", 0, '}'), 4);
        EXPECT_EQ(str_revr_find_ch("{a}b}c", 2, '}'), 2);
        EXPECT_EQ(str_revr_find_ch("{a}", 9, '}'), -1);
        EXPECT_EQ(str_revr_find_ch("abc", 0, '}'), -1);
        EXPECT_EQ(str_revr_find_ch("", 0, '}'), -1);
        EXPECT_EQ(str_revr_find_ch(nullptr, 0, '}'), -1);
    });
}

} // namespace contract_tests
