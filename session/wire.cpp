#include "session/wire.h"

#include "lan_client/discovery.h"
#include "lan_client/frame.h"

#include <random>
#include <stdexcept>
#include <utility>

namespace session {
namespace {

constexpr std::size_t fingerprint_digits = 16;
constexpr std::size_t crc_bytes = 4;
constexpr std::size_t crc_and_tail_bytes = 8;

std::string encoded(side from, const frame_content &content, std::string payload) {
    if (from == side::app) {
        return lan_client::encode_request(content.number, content.type, payload);
    }
    return lan_client::encode_reply({.number = content.number,
                                     .type = content.type,
                                     .ret = content.ret.value_or(0),
                                     .segment = content.segment,
                                     .payload = std::move(payload)});
}

std::string wire_frame(side from, const frame_content &content, const key_ring &keys,
                       const lan_client::aes_key &built_in) {
    std::string payload = content.payload;
    if (content.coded == coding::local) {
        payload = lan_client::encrypt(keys.local, payload);
    } else if (content.coded == coding::built_in) {
        payload = lan_client::encrypt(built_in, payload);
    }
    std::string bytes = encoded(from, content, std::move(payload));
    if (!content.crc_matches) {
        for (std::size_t i = 0; i < crc_bytes; ++i) {
            char &byte = bytes[bytes.size() - crc_and_tail_bytes + i];
            byte = static_cast<char>(~byte);
        }
    }
    return bytes;
}

} // namespace

key_ring keys_of(const header &from) {
    const auto key = lan_client::aes_key::from_text(from.key);
    if (!key) {
        throw std::invalid_argument("a session's key has 16 characters");
    }
    return {.local = *key};
}

std::string wire_bytes(const frame &of, const key_ring &keys) {
    return wire_frame(of.from, of.content, keys, keys.unactivated);
}

std::string wire_bytes(const datagram &of, const key_ring &keys) {
    if (const auto *bytes = std::get_if<std::string>(&of.content)) {
        return *bytes;
    }
    const lan_client::aes_key &key =
        of.port == lan_client::discovery_port ? keys.discovery : keys.configuration;
    return wire_frame(of.from, std::get<frame_content>(of.content), keys, key);
}

std::optional<std::string> wire_bytes(const event &of, const key_ring &keys) {
    if (const auto *whole = std::get_if<frame>(&of.what)) {
        return wire_bytes(*whole, keys);
    }
    if (const auto *bytes = std::get_if<raw_bytes>(&of.what)) {
        return bytes->bytes;
    }
    if (const auto *sent = std::get_if<datagram>(&of.what)) {
        return wire_bytes(*sent, keys);
    }
    return std::nullopt;
}

std::string fingerprint(const lan_client::aes_key &key) {
    const std::string_view bytes(reinterpret_cast<const char *>(key.data()), lan_client::key_bytes);
    return lan_client::sha256_text(bytes).substr(0, fingerprint_digits);
}

std::map<std::string, std::string> built_in_fingerprints() {
    return {{"key1", fingerprint(lan_client::configuration_key())},
            {"key2", fingerprint(lan_client::discovery_key())},
            {"key3", fingerprint(lan_client::unactivated_key())}};
}

std::string random_key() {
    constexpr std::string_view characters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device chance;
    std::uniform_int_distribution<std::size_t> index(0, characters.size() - 1);
    std::string key;
    while (key.size() < lan_client::key_bytes) {
        key += characters[index(chance)];
    }
    return key;
}

} // namespace session
