/*
 * The conformance kit: checks one by one what the contracts in platform/ promise, on the machine
 * where the port runs. It is C11, takes no memory of its own but that of the harness, and prints
 * one line for each promise:
 *
 *     ok      socket.a_number_never_comes_back
 *     broken  timer.a_deletion_waits: expected the callback to be over (timer_check.c:120)
 *     skipped log.secrets_are_hidden: the harness has no take_log
 *
 * The harness says how large things may be, and lends the kit the other ends of its connections.
 * These may lie on the target's own stack (conformance/posix.h does that over BSD sockets), or on
 * another machine that the harness reaches in a way of its own.
 */
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The other end of a connection, or of datagrams; the harness gives the record its form. */
typedef struct conformance_peer conformance_peer_t;

/** What conformance_harness_t.option tells of a socket. */
typedef enum {
    CONFORMANCE_NO_DELAY,            /**< 1 = no send delay */
    CONFORMANCE_SEND_BUFFER,         /**< bytes of the send buffer, or somewhat more */
    CONFORMANCE_CLOSE_ON_EXEC,       /**< 1 = kept out of programs that the process starts */
    CONFORMANCE_KEEP_ALIVE,          /**< 1 = probes are sent */
    CONFORMANCE_KEEP_ALIVE_IDLE,     /**< seconds of silence before the first */
    CONFORMANCE_KEEP_ALIVE_INTERVAL, /**< seconds between them */
    CONFORMANCE_KEEP_ALIVE_COUNT     /**< unanswered ones that end the connection */
} conformance_option_t;

/**
 * The port under test. Functions are called on the thread of conformance_run, which may make
 * contract calls. One marked "or null" may be absent; the promises that need it are then skipped.
 */
typedef struct {
    /* Sizes. What a desktop takes stands in brackets. */

    void *memory; /**< aligned for any type; three frames are made of it. One frame has to be more
                     than the send buffer below and the peer's receive buffer hold together */
    size_t memory_bytes;        /**< its size [3 MiB] */
    uint32_t stack_bytes;       /**< stack of the kit's threads, from 1024 [2048] */
    uint32_t deep_stack_bytes;  /**< stack that one thread asks for and uses, from 2048 [1 MiB] */
    uint32_t send_buffer_bytes; /**< asked of kelo_hal_net_set_bufsize [131072] */
    uint32_t rounds;            /**< how often two threads meet where they could collide [200] */
    uint32_t ids;               /**< timers and registrations that are made and deleted to see ids
                                   come round, and files that are opened and closed [70000] */
    uint32_t sockets;           /**< sockets that are made and closed to see numbers come back, from
                                   10 [100] */

    /* Times. */

    uint32_t at_once_ms; /**< what ends "at once" ends within so long [1000] */
    uint32_t bound_ms;   /**< how long the kit waits for what has to come [20000] */

    /* The port. */

    uint32_t address;            /**< where a socket bound to KELO_ADDRESS_ANY is reached, host byte
                                    order */
    const char *address_text;    /**< the same in dotted decimal */
    const char *network_address; /**< what bnw_get_ip has to tell while the network is up; null: not
                                    checked */
    uint32_t earliest_time; /**< the clock is set to this second since 1970 or a later one; 0: not
                               checked */
    bool has_priorities;    /**< a thread of a higher priority runs before CreateAndStart returns */
    const char *file_path;  /**< where the kit may make and remove a file; null: file.h is the
                               stub's */
    const char *barred_path; /**< or null. Where no file can be made, for another reason than that
                                the file of file_path is not there */
    const char *full_path;   /**< or null. A file to which not one byte can be written */
    bool has_wifi;           /**< false: wifi.h is the stub's */
    bool has_airkiss;        /**< false: airkiss.h is the stub's */

    /** Takes one line of the report, without a newline. */
    void (*print)(const char *line);
    /** Ends the program: a thread of the port hangs, and nothing further can be checked. Does not
     * return. */
    void (*give_up)(void);
    /** Milliseconds on the clock that the port's sleeps follow. Any thread. */
    uint64_t (*now_ms)(void);
    /** A port number that no socket uses; never the same one twice. */
    uint16_t (*free_port)(void);

    /* Peers. Times are in milliseconds. */

    /**
     * Connects to a listening socket at the port's address. The peer reads only what receive asks
     * for.
     *
     * @return the peer, or null when it is refused
     */
    conformance_peer_t *(*connect)(uint16_t port);
    /** Opens a UDP socket, bound and able to broadcast. */
    conformance_peer_t *(*open_datagrams)(void);
    /** Tells a peer's own address, in host byte order, and port, as the port under test sees them.
     */
    void (*endpoint)(conformance_peer_t *peer, uint32_t *address, uint16_t *port);
    /** Sends all bytes on a connection; few enough to fit the buffers. False when it has ended. */
    bool (*send)(conformance_peer_t *peer, const void *bytes, size_t length);
    /**
     * Receives what has come on a connection, waiting for the first byte.
     *
     * @return the number of bytes; 0 when the connection has ended; -1 when nothing came in time
     */
    int32_t (*receive)(conformance_peer_t *peer, void *bytes, size_t size, uint32_t timeout);
    /** Sends one datagram, which may be empty. */
    bool (*send_to)(conformance_peer_t *peer, uint32_t address, uint16_t port, const void *bytes,
                    size_t length);
    /** Receives one datagram and its sender. As receive. */
    int32_t (*receive_from)(conformance_peer_t *peer, void *bytes, size_t size, uint32_t timeout,
                            uint32_t *address, uint16_t *port);
    /** Ends a connection in order, or closes a UDP socket; releases the peer. */
    void (*close)(conformance_peer_t *peer);
    /** Breaks a connection off with a reset; releases the peer. */
    void (*reset)(conformance_peer_t *peer);

    /* A look below the contracts. */

    /**
     * Or null. Asks the system below the port for an option of a TCP socket.
     *
     * @param local_port    port that the socket is bound to
     * @param peer_port     port of the peer that it is connected to; 0: it has none
     * @param option        what is asked
     * @param[out] value    the answer
     * @return false when there is no such socket
     */
    bool (*option)(uint16_t local_port, uint16_t peer_port, conformance_option_t option,
                   uint32_t *value);
    /** Or null. While on, the system is late for the calling thread at what races are about: a
     * thread that it makes runs before it goes on itself, and its waits begin some 30 ms after its
     * last look at whether to wait. */
    void (*slow)(bool on);
    /** Or null. While on, the system has no descriptor and no memory for one more connection. */
    void (*exhaust)(bool on);
    /** Or null. Makes the network go down and come back. */
    void (*set_network)(bool up);
    /** Or null. Tells the permissions of a file, such as 0755. */
    uint32_t (*permissions)(const char *path);
    /**
     * Or null. Takes what was logged since the last call, NUL-terminated, a newline behind each
     * line; what does not fit is dropped. Levels 0 to 2 are kept by the log.
     */
    void (*take_log)(char *text, size_t size);
} conformance_harness_t;

/**
 * Checks promises and prints a line for each, then one with their numbers.
 *
 * @param harness  the port under test; lives until the call returns
 * @param wanted   a promise (group.name), a group, or null for all of them
 * @param[out] skipped  how many were skipped; or null
 * @return how many are broken; -1 when nothing has that name
 */
int32_t conformance_run(const conformance_harness_t *harness, const char *wanted,
                        uint32_t *skipped);

/** Prints the names of all promises, one a line. */
void conformance_list(void (*print)(const char *line));

/**
 * What main does on a system with arguments: checks what the first one names, or all.
 *
 * @return 0 all kept, 1 some broken, 2 wrong usage, 77 the only one named was skipped
 */
int conformance_main(const conformance_harness_t *harness, int argc, char **argv);

#ifdef __cplusplus
}
#endif
