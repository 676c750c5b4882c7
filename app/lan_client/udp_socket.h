// Datagrams to and from a UDP port of one interface.
#pragma once

#include "lan_client/errors.h"
#include "lan_client/event_loop.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace lan_client {

/** Receives what is sent to a port, beside other listeners on the same machine. */
class udp_listener {
  public:
    /** Called with each datagram and the address that it came from. */
    using callback = std::function<void(std::string_view bytes, const std::string &address)>;

    udp_listener(event_loop &loop, callback on_datagram);
    ~udp_listener();
    udp_listener(const udp_listener &) = delete;
    udp_listener &operator=(const udp_listener &) = delete;

    /** Starts to listen; the error says why it can't. */
    [[nodiscard]] error open(const std::string &interface_name, uint16_t port);

  private:
    class socket;
    std::shared_ptr<socket> socket_;
};

/** Sends one datagram through the interface; the address may be the broadcast address. */
[[nodiscard]] error send_datagram(event_loop &loop, const std::string &interface_name,
                                  const std::string &address, uint16_t port,
                                  std::string_view bytes);

} // namespace lan_client
