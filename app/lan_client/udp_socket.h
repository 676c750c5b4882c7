// Datagrams to and from a UDP port of one interface, or of all.
#pragma once

#include "lan_client/errors.h"
#include "lan_client/event_loop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace lan_client {

/** Where a datagram came from. */
struct datagram_source {
    std::string address;        /**< IPv4, dotted decimal */
    std::string interface_name; /**< that it arrived on */
};

/** Receives what is sent to a port, beside other listeners on the same machine. */
class udp_listener {
  public:
    using callback = std::function<void(std::string_view bytes, const datagram_source &source)>;

    udp_listener(event_loop &loop, callback on_datagram);
    ~udp_listener();
    udp_listener(const udp_listener &) = delete;
    udp_listener &operator=(const udp_listener &) = delete;

    /** Starts to listen on an interface, or on all; the error says why it can't. */
    [[nodiscard]] error open(const std::string &interface_name, uint16_t port);

  private:
    class socket;
    std::shared_ptr<socket> socket_;
};

/**
 * Sends one datagram through the interface, or where the routing table leads; the address may be
 * the broadcast address.
 */
[[nodiscard]] error send_datagram(event_loop &loop, const std::string &interface_name,
                                  const std::string &address, uint16_t port,
                                  std::string_view bytes);

} // namespace lan_client
