/* The peers of the gateway, which a test drives. Used by simulated threads, usually main. */
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

/** Time limit of a peer for what a test expects, virtual time. */
constexpr uint64_t expectation_ms = 60'000;

/** How a TCP connection behaves. */
struct stream_link {
    /** Most unread bytes on their way to the gateway; beyond these a peer's send waits. */
    size_t to_gateway_bytes_max = 64 * 1024;
    /** Most unread bytes on their way to a peer; 0: the size of the gateway's send buffer (64 KiB
     * until it sets one). */
    size_t to_peer_bytes_max = 0;
    /** Probability that a receive of the gateway gets only a part of the data, cut at any byte. */
    double short_read_odds = 0;
    /** Most bytes of one transfer into the buffers (both directions); the rest follows in further
     * transfers. */
    size_t segment_bytes_max = SIZE_MAX;
    /** Delay of each transfer, drawn from min to max; order is kept. */
    uint32_t delay_ms_min = 0;
    uint32_t delay_ms_max = 0;
};

/** How datagrams travel, drawn for each of them: different delays change their order. */
struct datagram_link {
    double loss_odds = 0;
    double duplicate_odds = 0;
    uint32_t delay_ms_min = 0;
    uint32_t delay_ms_max = 0;
};

/** The app's end of a TCP connection. Copies refer to the same end. It reads at once unless told
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
    /** No single receive of the gateway gets bytes from before and after this point. */
    void cut();
    /** Urgent data: the gateway's select reports an exception until it next receives from this
     * connection. */
    void send_urgent();

    /** Waits for that many bytes; returns fewer when the gateway ends the stream or the limit is
     * over. */
    std::string receive(size_t count, uint64_t limit_ms = expectation_ms);
    /** The bytes that have arrived, without waiting. */
    std::string receive_available();
    /** Bytes that have arrived and were not taken. */
    [[nodiscard]] size_t available() const;
    /** Waits until the gateway has ended the stream (closed or reset), dropping what comes; false
     * when the limit is over. */
    bool wait_for_end(uint64_t limit_ms = expectation_ms);
    /** Whether the gateway has ended the stream and all of its bytes were taken. */
    [[nodiscard]] bool ended() const;
    /** Whether either side has reset the connection. */
    [[nodiscard]] bool was_reset() const;

    /** Ends the connection in order; the gateway still reads what was sent. */
    void close();
    /** Ends the sending direction only (half-closed). */
    void close_sending();
    /** Resets the connection. */
    void reset();
    /** Leaves the network: nothing arrives any more in either direction. The gateway's keep-alive
     * detects it. */
    void vanish();

    /** From now on reads only what receive() asks for; the rest stays in the buffers of the
     * connection. */
    void stop_reading();
    /** Reads at once again. */
    void resume_reading();
    /** Reads at most so many bytes every every_ms milliseconds. */
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
    /** Datagrams that were not received yet. */
    [[nodiscard]] size_t available() const;
    void close();

  private:
    std::shared_ptr<udp_endpoint> endpoint_;
};

} // namespace sim
