/*
 * The sockets behind the descriptor numbers that the port hands out, and the error code of each
 * thread.
 */
#pragma once

#include "common/send_patience.h"
#include "platform/socket.h"
#include "send_order.h"
#include "wait.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace linux_port {

/** Progress of the bytes sent on a connection, and the patience left for its peer. */
struct outgoing {
    platform::send_patience patience;
    uint64_t accepted = 0;     /**< bytes that the system has accepted */
    uint64_t acknowledged = 0; /**< of these, acknowledged by the peer at the last check */
};

/** Where an accepted connection comes from. */
struct connection_origin {
    uint32_t peer = 0;        /**< its address, in host order */
    uint16_t peer_port = 0;   /**< its port */
    uint16_t server_port = 0; /**< of the server that accepted it; 0: no connection */
};

/**
 * One socket. Whoever works on it holds a reference, so that the system's descriptor is closed, and
 * its number used again, only when the last call on it has returned. A close marks the record and
 * shuts the system's socket down, which ends every poll on it, now or begun later.
 */
struct socket_record {
    socket_record(int system_descriptor, int32_t socket_kind, connection_origin origin);
    ~socket_record();
    socket_record(const socket_record &) = delete;
    socket_record &operator=(const socket_record &) = delete;

    const int fd;       /**< the system's descriptor, non-blocking: the port waits by itself */
    const int32_t kind; /**< KELO_SOCKET_TCP or KELO_SOCKET_UDP */
    const connection_origin accepted_from;
    /** Of a UDP socket bound to the configured "any address": a second socket that gets the
     * broadcasts, else -1. */
    std::atomic<int> broadcast_fd{-1};
    std::atomic<bool> closed{false};
    std::atomic<bool> blocking{true}; /**< mode of receives and accepts */
    std::atomic<bool> bound{false};
    std::atomic<uint16_t> served_port{0};    /**< of a listening TCP socket, else 0 */
    std::atomic<uint16_t> datagram_port{0};  /**< to which a UDP socket was bound, else 0 */
    std::atomic<bool> peer_has_ended{false}; /**< a receive found the end of the stream */
    /** Of a listening socket: until then select leaves it out, since accepting lacks resources. */
    std::atomic<monotonic_clock::time_point> accept_pause_end{monotonic_clock::time_point::min()};
    send_order sends;
    outgoing sent; /**< belongs to the thread whose turn to send it is */
};

using socket_ref = std::shared_ptr<socket_record>;

/** The highest number that is handed out: callers count up to the number above it. */
constexpr int32_t highest_descriptor = INT32_MAX - 1;

/** The number to be tried after one that was handed out (0 before the first). */
constexpr int32_t descriptor_after(int32_t number) {
    return number < highest_descriptor ? number + 1 : 1;
}

/** Puts a system socket, which it takes over, under a new number; the number, or -1 with the error
 * set. */
int32_t add_socket(int system_descriptor, int32_t kind, connection_origin accepted_from = {});
/** The socket of a number; null with the error set. */
socket_ref find_socket(int32_t descriptor);

/** Finds many sockets with the table locked once, for the life of a scope. */
class socket_finder {
  public:
    socket_finder();
    /** As find_socket. */
    [[nodiscard]] socket_ref find(int32_t descriptor) const;

  private:
    std::lock_guard<std::mutex> lock_;
};

/** The same, and takes the number out of use. */
socket_ref take_socket(int32_t descriptor);

/**
 * Sets the calling thread's error code.
 *
 * @return -1
 */
int32_t fail(int32_t code);
/** Sets it to what errno says, or to KELO_ERR_BAD_SOCKET when the socket was closed meanwhile.
 * @return -1 */
int32_t fail_with_errno();
int32_t fail_with_errno(const socket_record &socket);
/** The code that stands for an errno value. */
int32_t code_of_errno(int error);

} // namespace linux_port
