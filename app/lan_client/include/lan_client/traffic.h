// Every frame that was sent or received, and every byte of a connection, for observers.
#pragma once

#include "lan_client/frame.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

enum class payload_state {
    plain,      /**< not encrypted, or empty */
    decrypted,  /**< `text` is what was inside */
    unreadable, /**< encrypted with a key that is not at hand; `text` is empty */
};

/** Valid only during the call; it holds no key. Who observes must not call the client. */
struct traffic {
    bool sent = false;
    std::string_view peer{}; /**< address and port */
    bool discovery = false;
    uint32_t number = 0;
    uint32_t type = 0;
    std::optional<uint32_t> ret{}; /**< absent in requests */
    std::optional<segment_position> segment{};
    bool crc_matches = true;
    payload_state state = payload_state::plain;
    std::string_view wire_payload{}; /**< as on the wire */
    std::string_view text{};         /**< the plain payload */
};

using traffic_observer = std::function<void(const traffic &)>;

/** What happens to the connections of a client. */
enum class wire_event {
    connected,
    sent, /**< handed to the system; when the connection breaks, not all of it may leave */
    received,
    closed,
};

/** Valid only during the call. Who observes must not call the client. */
struct wire_notice {
    wire_event event = wire_event::connected;
    const void *client = nullptr; /**< tells clients apart; each has one connection at a time */
    std::string_view peer{};      /**< address and port of the gateway */
    std::string_view bytes{};     /**< of sent and received */
    bool by_gateway = false;      /**< of closed */
};

using wire_observer = std::function<void(const wire_notice &)>;

} // namespace lan_client
