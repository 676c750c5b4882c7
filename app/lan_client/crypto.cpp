// AES-128-ECB with PKCS#7 padding, the built-in keys and fingerprints, over nettle.
#include "lan_client/crypto.h"

#include "key_seeds.h"
#include "utf8.h"

#include <algorithm>
#include <cstring>
#include <span>

#include <nettle/aes.h>
#include <nettle/base16.h>
#include <nettle/md5.h>
#include <nettle/sha2.h>

namespace lan_client {
namespace {

using seed_bytes = std::array<uint8_t, key_bytes>;

// A seed is written character by character: the stores are volatile, so that the compiler can't
// merge them and no part of the seed is readable in the program.
using seed_buffer = volatile uint8_t *;

aes_key key_of_seed(seed_bytes &seed) {
    md5_ctx context;
    md5_init(&context);
    md5_update(&context, seed.size(), seed.data());
    std::array<uint8_t, MD5_DIGEST_SIZE> digest{};
    md5_digest(&context, digest.size(), digest.data());
    const aes_key key(digest);
    explicit_bzero(seed.data(), seed.size());
    explicit_bzero(&context, sizeof context); // has the seed as its last block
    explicit_bzero(digest.data(), digest.size());
    return key;
}

const uint8_t *as_bytes(std::string_view text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

uint8_t *as_bytes(std::string &text) {
    return reinterpret_cast<uint8_t *>(text.data());
}

std::string hex_text(std::span<const uint8_t> digest) {
    std::string text(BASE16_ENCODE_LENGTH(digest.size()), '\0');
    base16_encode_update(text.data(), digest.size(), digest.data());
    return text;
}

} // namespace

aes_key::~aes_key() {
    explicit_bzero(bytes_.data(), bytes_.size());
}

std::optional<aes_key> aes_key::from_text(std::string_view text) {
    std::array<uint8_t, key_bytes> bytes{};
    if (text.size() != bytes.size()) {
        return std::nullopt;
    }
    std::copy_n(as_bytes(text), bytes.size(), bytes.begin());
    return aes_key(bytes);
}

std::optional<aes_key> aes_key::from_seed(std::string_view text) {
    seed_bytes seed{};
    if (text.size() != seed.size()) {
        return std::nullopt;
    }
    std::copy_n(as_bytes(text), seed.size(), seed.begin());
    return key_of_seed(seed);
}

aes_key configuration_key() {
    seed_bytes bytes;
    const seed_buffer seed = bytes.data();
    ENGR_KEY1_SEED_STORES(seed)
    return key_of_seed(bytes);
}

aes_key discovery_key() {
    seed_bytes bytes;
    const seed_buffer seed = bytes.data();
    ENGR_KEY2_SEED_STORES(seed)
    return key_of_seed(bytes);
}

aes_key unactivated_key() {
    seed_bytes bytes;
    const seed_buffer seed = bytes.data();
    ENGR_KEY3_SEED_STORES(seed)
    return key_of_seed(bytes);
}

std::string encrypt(const aes_key &key, std::string_view plain) {
    const std::size_t padding = AES_BLOCK_SIZE - plain.size() % AES_BLOCK_SIZE;
    std::string text(plain);
    text.append(padding, static_cast<char>(padding));
    aes128_ctx context;
    aes128_set_encrypt_key(&context, key.data());
    aes128_encrypt(&context, text.size(), as_bytes(text), as_bytes(text));
    explicit_bzero(&context, sizeof context);
    return text;
}

std::optional<std::string> decrypt(const aes_key &key, std::string_view cipher) {
    if (cipher.empty() || cipher.size() % AES_BLOCK_SIZE != 0) {
        return std::nullopt;
    }
    std::string text(cipher.size(), '\0');
    aes128_ctx context;
    aes128_set_decrypt_key(&context, key.data());
    aes128_decrypt(&context, text.size(), as_bytes(text), as_bytes(cipher));
    explicit_bzero(&context, sizeof context);
    const std::size_t padding = static_cast<unsigned char>(text.back());
    if (padding == 0 || padding > AES_BLOCK_SIZE) {
        return std::nullopt;
    }
    if (text.find_first_not_of(static_cast<char>(padding), text.size() - padding) !=
        std::string::npos) {
        return std::nullopt;
    }
    text.resize(text.size() - padding);
    return text;
}

std::optional<std::string> decrypt_text(const aes_key &key, std::string_view cipher) {
    std::optional<std::string> text = decrypt(key, cipher);
    if (!text || text->find('\0') != std::string::npos) {
        return std::nullopt;
    }
    const bool in_braces = text->size() >= 2 && text->front() == '{' && text->back() == '}';
    if (!in_braces && !is_utf8(*text)) {
        return std::nullopt;
    }
    return text;
}

struct md5_sum::state {
    md5_ctx context;
};

md5_sum::md5_sum() : state_(std::make_unique<state>()) {
    md5_init(&state_->context);
}

md5_sum::~md5_sum() = default;

void md5_sum::add(std::string_view bytes) {
    md5_update(&state_->context, bytes.size(), as_bytes(bytes));
}

std::string md5_sum::text() {
    std::array<uint8_t, MD5_DIGEST_SIZE> digest{};
    md5_digest(&state_->context, digest.size(), digest.data());
    return hex_text(digest);
}

std::string sha256_text(std::string_view bytes) {
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, bytes.size(), as_bytes(bytes));
    std::array<uint8_t, SHA256_DIGEST_SIZE> digest{};
    sha256_digest(&context, digest.size(), digest.data());
    return hex_text(digest);
}

} // namespace lan_client
