// From records to the bytes that were on the wire, under keys of one's choice.
#pragma once

#include "lan_client/crypto.h"
#include "session/event.h"

#include <optional>
#include <string>
#include <string_view>

namespace session {

/** The keys of a gateway. The built-in ones are those of this build. */
struct key_ring {
    lan_client::aes_key local; /**< what the session's key stands for, or that key */
    lan_client::aes_key unactivated = lan_client::unactivated_key();
    lan_client::aes_key discovery = lan_client::discovery_key();
    lan_client::aes_key configuration = lan_client::configuration_key();
};

/** The key ring of a session: its own key, and the built-in ones. */
[[nodiscard]] key_ring keys_of(const header &from);

/** The bytes of what was on a connection. */
[[nodiscard]] std::string wire_bytes(const frame &of, const key_ring &keys);
/** The bytes of a datagram. */
[[nodiscard]] std::string wire_bytes(const datagram &of, const key_ring &keys);
/** The bytes of a frame, of bytes or of a datagram; nothing for any other event. */
[[nodiscard]] std::optional<std::string> wire_bytes(const event &of, const key_ring &keys);

} // namespace session
