/* The other end of the gateway's traffic: what a test holds in its hands. Used by simulated
 * threads, main as a rule. */
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace sim {

struct connection;
struct udp_endpoint;

/** Longest that a peer waits for what a test expects, virtual time. */
constexpr uint64_t expectation_ms = 60'000;

/** How a TCP connection behaves. */
struct stream_link {
    /** Bytes on their way to the gateway that it has not read; a peer's send waits for room. */
    size_t to_gateway_bytes_max = 64 * 1024;
    /** Bytes on their way to a peer that does not read; 0: as the gateway sets its send buffer (64
     * KiB until it does). */
    size_t to_peer_bytes_max = 0;
    /** Chance that a receive of the gateway gets only a part of what is there, cut at any byte. */
    double short_read_odds = 0;
    /** Most bytes that one transfer into the buffers takes (both directions); the rest follows as a
     * step of its own. */
    size_t segment_bytes_max = SIZE_MAX;
    /** Each transfer arrives so much later, drawn from min to max; order is kept. */
    uint32_t delay_ms_min = 0;
    uint32_t delay_ms_max = 0;
};

/** How datagrams travel, each drawn for itself: different delays put them out of order. */
struct datagram_link {
    double loss_odds = 0;
    double duplicate_odds = 0;
    uint32_t delay_ms_min = 0;
    uint32_t delay_ms_max = 0;
};

/** The app's end of a TCP connection. Copies are the same end. It reads eagerly unless told
 * otherwise. */
class peer {
  public:
    peer() = default; /**< refused */
    explicit peer(std::shared_ptr<connection> connection) : connection_(std::move(connection)) {}

    /** Whether the connection was made. */
    explicit operator bool() const { return connection_ != nullptr; }
    /** This end's address as the gateway sees it, host byte order. */
    [[nodiscard]] uint32_t address() const;
    [[nodiscard]] uint16_t port() const;
    [[nodiscard]] stream_link &link();

    /** Sends all bytes, waiting for room; false when the connection ends or nothing moves for
     * expectation_ms. */
    bool send(std::string_view bytes);
    bool send(std::span<const uint8_t> bytes);
    /** No receive of the gateway gets bytes from before and after this place at once. */
    void cut();
    /** Urgent data: the gateway's select reports an exception until it next receives from this
     * connection. */
    void send_urgent();

    /** Waits for that many bytes; returns fewer when the gateway ends the stream or the limit is
     * over. */
    std::string receive(size_t count, uint64_t limit_ms = expectation_ms);
    /** What has come, without waiting. */
    std::string receive_available();
    /** Bytes events that have occurred and were not taken. */
    [[nodiscard]] size_t available() const;
    /** Waits until the gateway has ended the stream (closed or reset), dropping what comes; false
     * when the limit is over. */
    bool wait_for_end(uint64_t limit_ms = expectation_ms);
    /** Whether the gateway has ended the stream and all of its bytes were taken. */
    [[nodiscard]] bool ended() const;
    /** Whether the connection was broken off, by either side. */
    [[nodiscard]] bool was_reset() const;

    /** Ends the connection in order; the gateway still reads what was sent. */
    void close();
    /** Ends the sending direction only (half-closed). */
    void close_sending();
    /** Breaks the connection off. */
    void reset();
    /** Is cut off the network: nothing arrives any more in either direction. Keep-alive of the
     * gateway notices in its time. */
    void vanish();

    /** From now on takes only what receive() asks for; the rest stays in the buffers of the
     * connection. */
    void stop_reading();
    /** Reads eagerly again. */
    void resume_reading();
    /** Takes at most so many bytes, once every so often. */
    void read_slowly(size_t bytes, uint32_t every_ms);

  private:
    std::shared_ptr<connection> connection_;
};

/** One datagram as a peer gets it. */
struct datagram {
    std::string bytes;
    uint32_t address; /**< sender, host byte order */
    uint16_t port;    /**< sender */
};

/** A UDP socket of the test. Copies are the same socket. */
class udp_peer {
  public:
    explicit udp_peer(std::shared_ptr<udp_endpoint> endpoint) : endpoint_(std::move(endpoint)) {}
    [[nodiscard]] uint32_t address() const;
    [[nodiscard]] uint16_t port() const;
    /** Sends to a UDP port of the gateway. */
    void send(uint16_t gateway_port, std::string_view bytes);
    /** Sends to an address, KELO_ADDRESS_BROADCAST too. */
    void send_to(uint32_t address, uint16_t port, std::string_view bytes);
    /** Waits for a datagram; none when the limit is over. */
    std::optional<datagram> receive(uint64_t limit_ms = expectation_ms);
    /** Datagrams that wait. */
    [[nodiscard]] size_t available() const;
    void close();

  private:
    std::shared_ptr<udp_endpoint> endpoint_;
};

} // namespace sim
