// The network below lan_client in a fuzz target: it takes the place of the library's sockets, so
// that an input costs no system call and nothing leaves the process.
#pragma once

#include <chrono>
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

/** What the far side does. */
struct far_side {
    std::function<void(far_end &)> on_connected;
    std::function<void(far_end &, std::string_view bytes)> on_bytes;

    /** The datagram that each listener gets at once; empty: none. */
    std::string datagram;
};

/** Sender of all datagrams. */
inline constexpr const char *datagram_sender = "127.0.0.1";

/** The far side of everything that is opened from now on; changed while nothing is open. */
far_side &the_far_side();

} // namespace fuzz
