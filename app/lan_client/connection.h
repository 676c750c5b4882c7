// One TCP connection to a gateway: bytes out, bytes in, and its end.
#pragma once

#include "lan_client/errors.h"
#include "lan_client/event_loop.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace lan_client {

struct connection_target {
    std::string address;        /**< IPv4, dotted decimal */
    uint16_t port;              /**< TCP */
    std::string interface_name; /**< the socket stays on it; empty: any */
};

struct connection_events {
    std::function<void()> on_connected;
    std::function<void(std::string_view)> on_bytes;
    std::function<void(std::size_t)> on_written;  /**< so many more bytes left for the network */
    std::function<void(const error &)> on_closed; /**< once; also when connecting fails */
};

/** Can be opened again after it closed. No event is delivered after close or its destruction. */
class connection {
  public:
    connection(event_loop &loop, connection_events events);
    ~connection();
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    void open(const connection_target &target, std::chrono::milliseconds connect_timeout);

    /**
     * Queues bytes, once it is connected; they are written in order, a short piece with one write
     * where the system allows.
     */
    void send(std::string bytes);

    /** Delivers no bytes until resume_reading; the network holds the peer back meanwhile. */
    void pause_reading();
    void resume_reading();

    void close();

  private:
    class link;
    event_loop &loop_;
    connection_events events_;
    std::shared_ptr<link> link_;
};

} // namespace lan_client
