// Keys and payload encryption of the LAN protocol.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

inline constexpr std::size_t key_bytes = 16;

/** One AES-128 key. Its bytes are wiped when it goes. */
class aes_key {
  public:
    explicit aes_key(const std::array<uint8_t, key_bytes> &bytes) : bytes_(bytes) {}
    aes_key(const aes_key &) = default;
    aes_key &operator=(const aes_key &) = default;
    ~aes_key();

    /** The key written as its 16 characters; nothing when the text has another length. */
    [[nodiscard]] static std::optional<aes_key> from_text(std::string_view text);

    /** The built-in key made of this seed; nothing unless the seed has 16 characters. */
    [[nodiscard]] static std::optional<aes_key> from_seed(std::string_view seed);

    [[nodiscard]] const uint8_t *data() const { return bytes_.data(); }
    [[nodiscard]] bool operator==(const aes_key &) const = default;

  private:
    std::array<uint8_t, key_bytes> bytes_;
};

/**
 * The built-in keys, made of the seeds that this library was built with. They are the defaults
 * where a key may be given.
 */
[[nodiscard]] aes_key configuration_key(); /**< access-point configuration (key 1) */
[[nodiscard]] aes_key discovery_key();     /**< discovery broadcast (key 2) */
[[nodiscard]] aes_key unactivated_key();   /**< TCP while the gateway is not activated (key 3) */

/** AES-128-ECB with PKCS#7 padding. */
[[nodiscard]] std::string encrypt(const aes_key &key, std::string_view plain);

/** The plain bytes, or nothing when the input is empty, ragged or wrongly padded. */
[[nodiscard]] std::optional<std::string> decrypt(const aes_key &key, std::string_view cipher);

/**
 * Decrypts a payload that is a text. A wrong key yields a valid padding once in 256 times, so the
 * plain bytes must look like text too: without zero bytes, and UTF-8 or within braces.
 */
[[nodiscard]] std::optional<std::string> decrypt_text(const aes_key &key, std::string_view cipher);

/** The MD5 of bytes that come piece by piece. */
class md5_sum {
  public:
    md5_sum();
    ~md5_sum();
    md5_sum(const md5_sum &) = delete;
    md5_sum &operator=(const md5_sum &) = delete;

    void add(std::string_view bytes);

    /** @return the sum as 32 lower-case hex digits; to be called once, after all bytes */
    [[nodiscard]] std::string text();

  private:
    struct state;
    std::unique_ptr<state> state_;
};

/** The SHA-256 of the bytes as 64 lower-case hex digits. */
[[nodiscard]] std::string sha256_text(std::string_view bytes);

} // namespace lan_client
