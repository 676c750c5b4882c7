// The network below lan_client in virtual time: it takes the place of the library's sockets, so
// that nothing costs a system call or leaves the process.
#pragma once

#include "lan_client/errors.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace fuzz {

/** The far end of a connection. */
class far_end {
  public:
    virtual ~far_end() = default;

    /** Sends bytes to the client; they arrive from its loop, soon and in order. */
    virtual void send(std::string bytes) = 0;

    /** Ends the connection once everything sent has arrived. */
    virtual void hang_up() = 0;

    /** Takes no more of what the client sends. */
    virtual void stop_reading() = 0;

    /** Calls `work` from the client's loop, unless the connection has ended by then. */
    virtual void later(std::function<void()> work, std::chrono::milliseconds delay = {}) = 0;
};

/** A datagram that is sent. */
struct sent_datagram {
    std::string interface_name; /**< through that it leaves; empty: any */
    std::string address;
    uint16_t port = 0;
    std::string bytes;
};

/** What the far side does. */
struct far_side {
    std::function<void(far_end &)> on_connected;
    std::function<void(far_end &, std::string_view bytes)> on_bytes;

    /** How long it takes the client's system to send up to 16 KiB. */
    std::chrono::milliseconds piece_time{0};

    /** The datagram that each listener gets at once; empty: none. */
    std::string datagram;

    /** Says why the system can't send it, if so. */
    std::function<lan_client::error(const sent_datagram &)> on_datagram;

    /** An interface that can't be used. */
    std::string missing_interface = "no-such-if";
};

/** Sender of all datagrams. */
inline constexpr const char *datagram_sender = "127.0.0.1";

/** The far side of everything that is opened from now on; changed while nothing is open. */
far_side &the_far_side();

/** A datagram that arrives on an interface, soon, for whoever listens there on the port. */
void deliver(uint16_t port, std::string_view bytes, const std::string &interface_name = "lo");

} // namespace fuzz
