#include "session/wire.h"

#include "lan_client/discovery.h"
#include "lan_client/frame.h"

#include <stdexcept>
#include <utility>

namespace session {
namespace {

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

} // namespace session
