/* Sockets, connections and datagrams in memory. */
#pragma once

#include "chooser.h"
#include "scheduler.h"

#include "common/send_patience.h"
#include "platform/socket.h"
#include "sim/peers.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace sim {

struct network;

/** Error codes of this port beside those that the contract names. */
enum {
    error_reset = -110,
    error_address_in_use = -111,
    error_invalid = -112,
    error_not_connected = -113,
    error_no_broadcast = -114,
    error_no_answer = -115 /**< keep-alive found the peer gone */
};
/** The system's errno for a code. */
int errno_of(int32_t code);

/** A FIFO of bytes. */
class byte_queue {
  public:
    [[nodiscard]] size_t size() const { return bytes_.size() - head_; }
    void push(std::string_view bytes) { bytes_.append(bytes); }
    /** Removes and returns the first ones; at most size(). */
    std::string take(size_t count);
    void clear();

  private:
    std::string bytes_;
    size_t head_ = 0;
};

/** A TCP connection with both of its ends. */
struct connection {
    /** How the peer takes what is sent to it. */
    enum class reading { eagerly, on_request, slowly };

    stream_link link;
    size_t send_bytes = 0; /**< the gateway's own choice of buffer */
    uint32_t peer_address = 0;
    uint16_t peer_port = 0;
    uint16_t gateway_port = 0;

    byte_queue to_gateway;      /**< arrived, not yet received by the gateway */
    size_t to_gateway_away = 0; /**< under way to it */
    std::deque<uint64_t> cuts;  /**< places in the stream to the gateway that no receive passes */
    uint64_t sent_to_gateway = 0;
    uint64_t received_by_gateway = 0;
    byte_queue to_peer; /**< sent by the gateway, not yet taken by the peer */
    size_t to_peer_away = 0;
    uint64_t taken_by_peer = 0;       /**< bytes that have left to_peer */
    uint64_t restored_for = 0;        /**< of these, credited to the patience */
    platform::send_patience patience; /**< of the gateway's sends */
    byte_queue inbox;                 /**< taken by the peer, for the test */

    reading mode = reading::eagerly;
    size_t wanted = 0; /**< bytes that a receive asks for, when read on request */
    size_t slow_bytes = 0;
    uint32_t slow_every_ms = 0;
    bool slow_step_planned = false;

    bool peer_sends_no_more = false;    /**< the peer closed at least its sending direction */
    bool end_reached_gateway = false;   /**< and the gateway can see that */
    bool peer_closed = false;           /**< the peer would answer data with a reset */
    bool gateway_sends_no_more = false; /**< the gateway shut down or closed */
    bool end_on_its_way = false;
    bool end_reached_peer = false;
    bool gateway_closed = false;
    bool gateway_reset = false; /**< the gateway closed although data waited for it */
    bool torn = false;          /**< a send of the gateway failed after some bytes */
    bool reset = false;         /**< as the gateway sees it */
    int32_t reset_code = error_reset;
    bool urgent = false;
    bool vanished = false;
    uint64_t last_arrival_at_gateway = 0;
    uint64_t last_arrival_at_peer = 0;

    [[nodiscard]] size_t room_to_peer() const;
    [[nodiscard]] size_t room_to_gateway() const;
    [[nodiscard]] bool readable() const {
        return to_gateway.size() != 0 || end_reached_gateway || reset;
    }
};

/** A socket of the gateway. */
struct gateway_socket {
    enum class state { fresh, bound, listening, connected };

    int32_t number = 0;
    bool is_tcp = true;
    state condition = state::fresh;
    uint32_t address = 0;
    uint16_t port = 0;
    bool blocking = true;
    bool reuse = false;
    bool broadcast = false;
    size_t send_bytes = 64 * 1024;
    uint64_t keepalive_ms = 0; /**< silence after which a vanished peer is noticed; 0: never */
    size_t backlog_max = 0;
    std::deque<std::shared_ptr<connection>> backlog;
    bool broken = false; /**< in an exceptional condition */
    std::shared_ptr<connection> stream;
    thread *sender = nullptr; /**< thread whose turn to send it is */
    std::deque<datagram> datagrams;

    [[nodiscard]] bool readable() const;
    [[nodiscard]] bool writable() const;
    [[nodiscard]] bool exceptional() const;
};

/** A UDP socket of the test. */
struct udp_endpoint {
    uint32_t address = 0;
    uint16_t port = 0;
    std::deque<datagram> arrived;
    bool closed = false;
};

/** The whole network. */
struct network {
    network(core &owner, uint64_t seed);

    core &world;
    random_source chance;
    datagram_link datagrams;
    std::vector<std::unique_ptr<gateway_socket>> sockets; /**< by number, null when closed */
    std::vector<std::shared_ptr<udp_endpoint>> endpoints;
    uint32_t next_host = 100; /**< last part of the next peer's address */
    uint16_t next_port = 50'000;

    gateway_socket &add_socket(bool is_tcp);
    [[nodiscard]] gateway_socket *find(int32_t descriptor) const;
    [[nodiscard]] gateway_socket *listener(uint16_t port) const;
    void close(gateway_socket &socket);
    /** Whether another socket has the address already. */
    [[nodiscard]] bool occupied(const gateway_socket &socket, uint32_t address,
                                uint16_t port) const;
    uint16_t free_port();
    uint32_t new_address();

    /** Lets something arrive at an end of a connection after what was sent before it. */
    void arrive(const std::shared_ptr<connection> &stream, uint64_t &last_arrival,
                std::function<void()> what);
    /** Moves the bytes that the peer reads now from the buffers to the test. */
    void pump(const std::shared_ptr<connection> &stream);
    /** The gateway ends its sending direction. */
    void end_to_peer(const std::shared_ptr<connection> &stream);
    /** Delivers a datagram to all of its receivers. */
    void deliver(const datagram &sent, uint32_t address, uint16_t port);

  private:
    void take(const std::shared_ptr<connection> &stream, size_t count);
    void deliver_once(const datagram &sent, uint32_t address, uint16_t port);
};

} // namespace sim
