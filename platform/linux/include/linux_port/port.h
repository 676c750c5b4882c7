/*
 * What a program that uses the Linux port decides itself: its network, its log, the end of the
 * port's threads.
 */
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace linux_port {

/** Where the sockets of this process live. */
struct network_config {
    /**
     * The one interface that sockets send and receive on; a socket that cannot be confined to it is
     * not created. Empty: any interface.
     */
    std::string interface = "lo";
    /**
     * What "any address" means, dotted decimal, so that several gateways share one host, each with
     * an address of its own. Datagrams to 255.255.255.255 still reach a UDP socket that is bound to
     * any address; those to the broadcast address of a subnet do not. Empty: every address of the
     * interface.
     */
    std::string any_address;
};

/**
 * Sets the network. Call it before the first socket is created, on one thread.
 *
 * @return false, and nothing is changed, when any_address is no IPv4 address or the interface's
 *     name is too long
 */
[[nodiscard]] bool configure_network(const network_config &config);

/** The network as it was set. Any thread. */
const network_config &configured_network();

/** What happened to a TCP server of this process. */
enum class server_event {
    listening,   /**< it takes connections */
    failed,      /**< its port could not be bound */
    closed,      /**< it no longer listens */
    connected,   /**< it accepted a connection */
    disconnected /**< one that it had accepted was closed here */
};

/** One event of a server. */
struct server_notice {
    server_event event;
    uint16_t port;    /**< the server's */
    int error;        /**< errno of a failure, else 0 */
    std::string peer; /**< of a connection, in dotted decimal, else empty */
};

/**
 * Observer of TCP servers, called at once on the thread that makes the change. Must not use
 * sockets of the port.
 */
using server_observer = std::function<void(const server_notice &notice)>;

/** Sets the observer. Call it before the first socket is created, and again (with an empty one)
 * when none is left. */
void set_server_observer(server_observer observer);

/** What passed through a socket. */
enum class traffic_event {
    connected,         /**< a server accepted a connection */
    received,          /**< bytes came on a connection */
    sent,              /**< bytes are about to be handed to the system for a connection: if it
                            breaks meanwhile, not all may leave */
    disconnected,      /**< a connection was closed here */
    datagram_received, /**< a datagram came */
    datagram_sent      /**< a datagram left */
};

/** One such event; valid during the call. */
struct traffic_notice {
    traffic_event event;
    int32_t descriptor;     /**< of the connection or of the socket of the datagram */
    uint16_t port;          /**< the server's; of a datagram the one that it is sent to */
    std::string_view bytes; /**< of received, sent and datagrams */
    uint32_t peer;          /**< address of the other side, in host order */
    uint16_t peer_port;     /**< its port */
    bool peer_has_ended;    /**< of disconnected: the peer had closed before */
};

/**
 * Observer of all bytes of accepted connections and of datagrams, called on the thread that
 * receives or sends, in the order in which the bytes pass. Must not wait, throw or use sockets of
 * the port.
 */
using traffic_observer = std::function<void(const traffic_notice &notice)>;

/** Sets the observer, as set_server_observer does. Without one nothing is copied and nothing costs
 * time. */
void set_traffic_observer(traffic_observer observer);

/** An address in dotted decimal. */
std::string address_text(uint32_t address);

/** Address in dotted decimal of the peer from which the calling thread received last, by TCP or
 * UDP; empty when it has received nothing. */
std::string last_sender();

/** First IPv4 address of an interface in dotted decimal; nothing when there is no such interface or
 * it has none. Any thread. */
std::optional<std::string> interface_address(std::string_view name);

/** Mask of that address in dotted decimal. Any thread. */
std::optional<std::string> interface_mask(std::string_view name);

/** Whether an interface exists, is up and has a carrier. Any thread. */
bool interface_is_up(std::string_view name);

/** Lines above this level are dropped before they are formatted; 5 keeps all. Starts at 2. Any
 * thread. */
void set_log_level(int level);

/**
 * Takes one log line without its newline: `TIME LEVEL FILE:LINE FUNCTION MESSAGE`. Called by one
 * thread at a time, whichever writes; must not call PrintLog or throw.
 */
using log_sink = std::function<void(int level, std::string_view line)>;

/** Sets where log lines go; an empty one stands for standard error, which is also the start. Any
 * thread. On return the old sink is no longer running. */
void set_log_sink(log_sink sink);

/**
 * Writes a log line, without its newline, to standard error; never waits for a reader. A
 * line that can't be written at once is lost, or its end is; the next one that can follows a line
 * that says how many were. Any thread; lines never mix.
 */
void write_standard_error(std::string_view line);

/**
 * Ends the threads of the timers and of the message bus and forgets all timers, registrations and
 * waiting messages. Callbacks that run are told to stop and waited for. For the end of a program or
 * a test: no other thread may be in a timer or bus call, and no callback may call it. Both start
 * anew when they are used again.
 */
void shutdown();

} // namespace linux_port
