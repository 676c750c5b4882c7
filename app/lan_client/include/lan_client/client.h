// A connection to one gateway: requests and their answers, reports, keep-alives, reconnecting.
#pragma once

#include "lan_client/crypto.h"
#include "lan_client/errors.h"
#include "lan_client/event_loop.h"
#include "lan_client/frame_types.h"
#include "lan_client/limits.h"
#include "lan_client/reconnect_pause.h"
#include "lan_client/traffic.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lan_client {

inline constexpr uint16_t gateway_port = 6668;

struct client_options {
    std::string address; /**< IPv4, dotted decimal */
    uint16_t port = gateway_port;
    std::string interface_name = "lo"; /**< traffic stays on it; empty: any */

    /**
     * Keys the gateway may use, the likely one first, at least one. When an answer can only be
     * decrypted with another one, the client changes over to that. Nothing is ever encrypted with a
     * key that is not among them, and what came under such a key is not read.
     */
    std::vector<aes_key> keys;

    /** What a gateway uses that is not activated: to recognise one that should be, but is not. */
    aes_key built_in_key = unactivated_key();

    std::chrono::milliseconds connect_timeout{5000};
    std::chrono::milliseconds request_timeout{5000};

    /** A gateway drops an app that is silent for 120 s. */
    std::chrono::milliseconds keep_alive_interval{30000};

    /**
     * So many keep-alives in a row without an answer, with nothing else received meanwhile, mean a
     * dead connection. A gateway that writes a piece of an image answers nobody for up to 60 s, one
     * that waits for the rest of another app's frame for 30 s, one that uploads its log for about
     * as long.
     */
    unsigned max_unanswered_keep_alives = 4;

    bool reconnect = false; /**< come back by itself once a connection has worked */
    reconnect_pause pause;
};

/** The outcome of one request. */
struct answer {
    error failure{};     /**< none: the gateway answered, with whatever `ret` */
    uint32_t type = 0;   /**< of the request */
    uint32_t number = 0; /**< of the request */
    uint32_t ret = 0;
    /** Decrypted; a transfer in segments is put together. After a failure: what has come of it. */
    std::string payload{};
    std::chrono::microseconds round_trip{0};
};

/** A frame that answers no request under way: a report (number 0), or an answer that came late. */
struct report {
    uint32_t type = 0;
    uint32_t number = 0;
    uint32_t ret = 0;
    bool readable = true; /**< false: damaged, or no key at hand decrypts it */
    bool damaged = false; /**< not readable: its CRC is wrong */
    bool under_built_in_key =
        false;             /**< not readable: under the built-in key, not among the keys */
    std::string payload{}; /**< decrypted; empty when it is not readable */
};

enum class link_state {
    connected, /**< the gateway answers */
    lost,      /**< the connection ended or could not be made */
};

struct link_change {
    link_state state = link_state::lost;
    error why{};                        /**< of a lost connection */
    std::chrono::milliseconds pause{0}; /**< until the next attempt; 0: there is none */
};

struct client_events {
    std::function<void(const report &)> on_report;
    std::function<void(const link_change &)> on_link;
    traffic_observer on_traffic;
    wire_observer on_wire = {}; /**< called to the end, also while the client is destroyed */
};

struct request {
    uint32_t type = 0;
    std::string payload{};
    payload_coding coding = payload_coding::plain;
    std::chrono::milliseconds timeout{0}; /**< 0: the client's request_timeout */

    /** Called with each segment of a long transfer, which also renews the time-out. */
    std::function<void(segment_position)> on_segment{};

    /**
     * Called with the bytes of the frame that the system has accepted so far, until it has accepted
     * all; each call renews the time-out.
     */
    std::function<void(std::size_t sent_bytes, std::size_t frame_bytes)> on_sent{};
};

using completion = std::function<void(const answer &)>;

/**
 * Requests may be made at any time, several at once; each is completed exactly once, from the loop
 * or from close, unless the client is destroyed before. A request that would make those under way
 * hold more than max_request_bytes_under_way fails with error_kind::queue_full. A callback may make
 * requests, close or destroy the client. All calls are made on the loop's thread.
 */
class client {
  public:
    client(event_loop &loop, client_options options, client_events events = {});
    ~client();
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    /** Starts to connect. Requests made meanwhile wait for the connection. */
    void open();

    /** Ends the connection; requests under way are cancelled. */
    void close();

    void ask(request wanted, completion done);

    /**
     * Sends a frame that has no answer, such as a piece of an image. When the queue is full, the
     * connection ends: no answer could say so.
     */
    void tell(request wanted);

    /**
     * Bytes of frames that the system has not accepted for sending yet, for callers that send much;
     * 0 when there is no connection and nothing waits for one.
     */
    [[nodiscard]] std::size_t unsent_bytes() const;

  private:
    class conversation;
    std::shared_ptr<conversation> conversation_;
};

} // namespace lan_client
