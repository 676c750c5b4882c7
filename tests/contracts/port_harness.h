// What the contract tests need of a port beside the contracts: a place to run in and the other end
// of its connections. Each port implements these three classes and make_port_harness() in one
// harness_PORT.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace contract_tests {

/** Longest that a peer waits for what a test expects; long, since only failing tests reach it. */
constexpr uint64_t expectation_bound_ms = 20'000;

/**
 * The other end of a TCP connection. It reads only what a test asks for: what nobody asks for stays
 * in the buffers between the ends, which hold less than stream_capacity_bytes together, until no
 * more fits. Called on the thread of the body.
 */
class stream_peer {
  public:
    /** More than the buffers between both ends hold, the send buffer left at its default. */
    static constexpr size_t stream_capacity_bytes = 16 * 1024 * 1024;

    /** Closes as close() does. */
    virtual ~stream_peer() = default;
    /** Sends all bytes; false when the connection has ended. Tests send little enough to fit the
     * buffers. */
    virtual bool send(std::string_view bytes) = 0;
    /** Waits for that many bytes; returns fewer when the port ends the stream or
     * expectation_bound_ms is over. */
    virtual std::string receive(size_t count) = 0;
    /** Waits until the port has closed the connection (data that comes before is dropped); false
     * when it has not. */
    virtual bool wait_for_end() = 0;
    /** Ends the connection in order: the port still reads what was sent, then the end of the
     * stream. */
    virtual void close() = 0;
    /** Breaks the connection off (reset). */
    virtual void reset() = 0;
};

/** One datagram as a peer gets it. */
struct datagram {
    std::string bytes;
    uint32_t address; /**< sender, host byte order */
    uint16_t port;    /**< sender */
};

/** The other end of UDP traffic: one socket bound to a port of its own. Called on the thread of the
 * body. */
class datagram_peer {
  public:
    virtual ~datagram_peer() = default;
    /** Address by which the port reaches this peer, host byte order. */
    [[nodiscard]] virtual uint32_t address() const = 0;
    [[nodiscard]] virtual uint16_t port() const = 0;
    /** Sends one datagram to an address (port_harness::address() or KELO_ADDRESS_BROADCAST) and
     * port of the port. */
    virtual bool send_to(uint32_t address, uint16_t port, std::string_view bytes) = 0;
    /** Waits for one datagram; nothing when expectation_bound_ms is over. */
    virtual std::optional<datagram> receive() = 0;
};

/** The port under test. One lives for each test. */
class port_harness {
  public:
    /** Ends what the port runs in the background. A port that can tell fails the test when anything
     * is left over. */
    virtual ~port_harness() = default;

    /**
     * Runs the body to its end on a thread on which contract calls may be made. On a port with
     * virtual time, time passes while the body sleeps or waits in a contract call or a peer. The
     * body and what it starts call the contracts and the peers only; whatever waits, waits in
     * these.
     */
    virtual void run(const std::function<void()> &body) = 0;

    /** Milliseconds on the clock that the port's sleeps and timers follow. Any thread. */
    [[nodiscard]] virtual uint64_t now_ms() = 0;

    /** Address at which a socket bound to KELO_ADDRESS_ANY is reached, host byte order. */
    [[nodiscard]] virtual uint32_t address() const = 0;
    /** A port number that no socket, TCP or UDP, uses; never the same one twice. */
    virtual uint16_t free_port() = 0;

    /** Connects to a listening socket of the port at address(); null when it is refused. */
    virtual std::unique_ptr<stream_peer> connect(uint16_t port) = 0;
    /** Opens a UDP socket on the network of the port. It may broadcast. */
    virtual std::unique_ptr<datagram_peer> open_datagram_peer() = 0;
};

/** Starts the port. */
std::unique_ptr<port_harness> make_port_harness();

} // namespace contract_tests
