/*
 * Sockets over IPv4, and select.
 *
 * Descriptors. A descriptor is a number that the port hands out: above 0 and, since select takes
 * the highest one plus 1, below 2147483647. REQUIRED of a port: a number is never handed out a
 * second time while the process lives (a port over system descriptors keeps a small table for
 * that). A caller that still holds the number of a socket closed meanwhile gets an error, never
 * somebody else's connection.
 *
 * Waiting. Whatever waits on a socket ends at once when that socket is closed, for a send also when
 * sending is shut down, on whatever thread, and when the waiting thread is told to stop.
 *
 * Lack of resources. An accept may fail for want of descriptors or memory while a connection waits.
 * REQUIRED of a port: a caller that answers with another select must not spin. The port then either
 * takes the connection off the queue, or leaves the listening socket out of select for a while (the
 * Linux port for 250 ms).
 *
 * Errors. A call fails when its descriptor is unknown or was closed meanwhile
 * (KELO_ERR_BAD_SOCKET), when the system refuses it, and in the cases named with it. The caller
 * tells failure from success by the sign alone; kelo_hal_net_get_errno gives the code of the
 * calling thread's last failed call here. Codes are negative. The three transient ones are fixed;
 * others never collide with them.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds of socket for kelo_hal_net_socket_create. */
enum { KELO_SOCKET_TCP = 0, KELO_SOCKET_UDP = 1 };

/** Buffer kinds for kelo_hal_net_set_bufsize. */
enum { KELO_BUFFER_SEND = 7 };

/** Codes of kelo_hal_net_get_errno that callers act on. */
enum {
    KELO_ERR_INTERRUPTED = -2,   /**< transient: interrupted */
    KELO_ERR_WOULD_BLOCK = -4,   /**< transient: nothing to read, or no room, right now */
    KELO_ERR_TRY_AGAIN = -12,    /**< transient: try again */
    KELO_ERR_PEER_CLOSED = -100, /**< a receive found that the peer has closed */
    KELO_ERR_BAD_SOCKET = -101,  /**< no such descriptor, or it was closed meanwhile */
    KELO_ERR_STOPPED = -102,     /**< the calling thread was told to stop */
    KELO_ERR_TIMED_OUT = -103    /**< a send found no room for as long as it waits */
};

/** The address 255.255.255.255 and the wildcard, as the 32-bit numbers that addresses are here
 * (host byte order). */
#define KELO_ADDRESS_BROADCAST 0xFFFFFFFFu
#define KELO_ADDRESS_ANY 0u

/** Most descriptors that one set holds. */
enum { KELO_FD_SET_CAPACITY = 16 };

/** A set of descriptors: a plain list, so that any descriptor number fits. Change it only through
 * the functions below. */
typedef struct {
    uint32_t count;                            /**< descriptors in the set */
    int32_t descriptors[KELO_FD_SET_CAPACITY]; /**< the first count of these */
} kelo_fd_set_t;

/** Empties a set. */
void kelo_hal_net_fd_zero(kelo_fd_set_t *set);
/** Puts a descriptor into a set. One below 0, one that is in it and one too many for the set change
 * nothing. */
void kelo_hal_net_fd_set(int32_t descriptor, kelo_fd_set_t *set);

/**
 * Whether a descriptor is in a set.
 *
 * @return 1 when it is, else 0
 */
int32_t kelo_hal_net_fd_isset(int32_t descriptor, const kelo_fd_set_t *set);

/**
 * Waits until a descriptor is ready. On success each set is cut down to its ready members; else the
 * sets are unchanged.
 *
 * @param descriptor_count  only descriptors below this number are watched
 * @param read_set          ready when a receive or accept would not wait (data, end of stream,
 *     error), a listening socket that lacks resources aside; or null
 * @param write_set         ready when a send would not wait; or null
 * @param exception_set     ready when urgent data has come; or null
 * @param milliseconds      longest wait
 * @return the number of members left in all sets; 0 when the time is over; negative on failure: a
 *     watched descriptor is unknown or was closed meanwhile, or the calling thread was told to
 *     stop. When a member is ready on a thread that was told to stop, a port may answer either way
 */
int32_t kelo_hal_net_select(int32_t descriptor_count, kelo_fd_set_t *read_set,
                            kelo_fd_set_t *write_set, kelo_fd_set_t *exception_set,
                            uint32_t milliseconds);

/**
 * Creates a socket, in blocking mode. A UDP socket sends from any local address and port until it
 * is bound.
 *
 * @param kind  KELO_SOCKET_TCP or KELO_SOCKET_UDP
 * @return a descriptor above 0; negative on failure
 */
int32_t kelo_hal_net_socket_create(int32_t kind);

/**
 * Closes a socket. Waits of other threads on it end at once. Any thread; does not wait for the
 * peer.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_close(int32_t descriptor);

/**
 * Ends the sending side of a connection: what was accepted for sending still goes out, sends that
 * wait fail at once and so do later ones; receiving goes on. Any thread; does not block.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_shutdown(int32_t descriptor);

/**
 * Sets a buffer's size in bytes.
 *
 * @param kind  KELO_BUFFER_SEND; other kinds are refused
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_set_bufsize(int32_t descriptor, uint32_t size, int32_t kind);

/**
 * Lets a local address be bound again at once after use.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_set_reuse(int32_t descriptor);

/**
 * Keeps the socket out of programs that the process starts.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_set_cloexec(int32_t descriptor);

/**
 * Allows broadcasts.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_set_boardcast(int32_t descriptor);

/**
 * Sets blocking or non-blocking mode for receives and accepts; sends have a rule of their own.
 *
 * @param block  true: blocking
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_set_block(int32_t descriptor, bool block);

/**
 * Keep-alive probes of TCP.
 *
 * @param on          whether probes are sent
 * @param idle_s      seconds of silence before the first
 * @param interval_s  seconds between them
 * @param count       how many unanswered ones end the connection
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_set_keepalive(int32_t descriptor, bool on, uint32_t idle_s,
                                   uint32_t interval_s, uint32_t count);

/**
 * Binds to an address and a port.
 *
 * @param address  host byte order; KELO_ADDRESS_ANY for any that the port serves
 * @param port     host byte order; 0 lets the system choose
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_bind(int32_t descriptor, uint32_t address, uint16_t port);

/**
 * Binds to a local address given as dotted decimal, at a port of the port's choice.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_socket_bind(int32_t descriptor, const char *address);

/**
 * Makes a bound TCP socket listen.
 *
 * @return 0; negative on failure
 */
int32_t kelo_hal_net_listen(int32_t descriptor, int32_t backlog);

/**
 * Takes a waiting connection; waits for one when the listening socket is in blocking mode. Where it
 * would have to wait on a thread that was told to stop it fails with KELO_ERR_STOPPED. The new
 * socket has no send delay (TCP_NODELAY) and is in blocking mode.
 *
 * @param descriptor    listening socket
 * @param[out] address  the peer's IPv4 address, host byte order; or null
 * @param[out] port     the peer's port; or null
 * @return a descriptor above 0; negative on failure
 */
int32_t kelo_hal_net_accept(int32_t descriptor, uint32_t *address, uint16_t *port);

/**
 * Receives what is there, waiting for the first byte in blocking mode. Where it would have to wait
 * on a thread that was told to stop it fails with KELO_ERR_STOPPED, in non-blocking mode too. One
 * thread at a time may receive on a socket.
 *
 * @param length  room in the buffer, at least 1
 * @return the number of bytes; 0 when the peer has closed (code KELO_ERR_PEER_CLOSED); negative on
 *     failure
 */
int32_t kelo_hal_net_recv(int32_t descriptor, void *buffer, uint32_t length);

/**
 * Receives one datagram; what does not fit is cut off. Empty datagrams are dropped.
 *
 * @param[out] address  the sender's address, host byte order; or null
 * @param[out] port     the sender's port; or null
 * @return the number of bytes, above 0; negative on failure
 */
int32_t kelo_hal_net_recvfrom(int32_t descriptor, void *buffer, uint32_t length, uint32_t *address,
                              uint16_t *port);

/**
 * Sends a whole buffer on a connection, or fails. Waits for room whatever the blocking mode, as
 * long as the port has patience with the peer. A connection begins with a patience of 2 s. It
 * shrinks by the time that sends wait for room, and each 65536 bytes of progress give 1 s back
 * (fewer in proportion), up to 2 s; when none is left, a send that would have to wait fails with
 * KELO_ERR_TIMED_OUT. So nobody waits longer than 2 s for a peer that takes nothing, and all waits
 * for one connection together last at most 2 s and 1 s for each 65536 bytes that were taken.
 * Progress are the bytes that have left the send buffer because the peer's side has acknowledged
 * them, in whatever portions; bytes that only lie in the buffer do not count.
 *
 * Sends of several threads to one socket follow each other, whole buffer by whole buffer; a wait
 * for one's turn has no bound of its own, since each send before it has one. After a send that
 * failed behind some bytes, every later send on that connection fails, those that wait included.
 *
 * @return length when all bytes were accepted; any other value when not: peer closed or gone, no
 *     patience left (KELO_ERR_TIMED_OUT), sending ended by kelo_hal_net_shutdown, thread told to
 *     stop while waiting (KELO_ERR_STOPPED)
 */
int32_t kelo_hal_net_send(int32_t descriptor, const void *buffer, uint32_t length);

/**
 * Sends one datagram. A broadcast leaves by the gateway's interface, also from a socket without an
 * address and where the system has no route to it.
 *
 * @param address  host byte order
 * @return the number of bytes; negative on failure
 */
int32_t kelo_hal_net_send_to(int32_t descriptor, const void *buffer, uint32_t length,
                             uint32_t address, uint16_t port);

/**
 * Code of the calling thread's last failed call here; unchanged by calls that succeed.
 *
 * @return one of KELO_ERR_..., or another negative code; 0 when no call has failed yet
 */
int32_t kelo_hal_net_get_errno(void);

#ifdef __cplusplus
}
#endif
