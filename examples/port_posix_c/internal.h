/* What the files of the port share. */
#pragma once

#include "platform/socket.h"

#include <poll.h>
#include <stdatomic.h>
#include <stdint.h>

/* ---- waiting (wait.c) ---- */

/** How a wait ended. */
enum wake { WAKE_READY, WAKE_TIME, WAKE_STOPPED };

/** Milliseconds on a clock that never jumps. */
int64_t port_now_ms(void);

/**
 * Waits until one of the watched descriptors is ready, a moment has come, or the calling thread is
 * told to stop, which also counts when it already was.
 *
 * @param watched  count entries, room for one more behind them
 * @param until    the moment; INT64_MAX for none
 */
enum wake port_wait(struct pollfd *watched, nfds_t count, int64_t until);

/** Whether the calling thread was told to stop. */
int port_is_stopped(void);

/** Sets the calling thread's stop event: a descriptor that becomes readable when it is told to
 * stop. A thread that the port did not make has none. */
void port_set_stop_event(int descriptor);

/** Starts one of the port's own contexts; they last as long as the process. 0, or an error. */
int port_start_context(void *(*body)(void *));

/* ---- sockets ---- */

/** A socket. Whoever uses one holds a reference; the last one closes the system's descriptor. */
struct port_socket {
    int32_t number;
    int fd;
    int kind;          /**< KELO_SOCKET_TCP or KELO_SOCKET_UDP */
    int gone[2];       /**< a pipe whose write end is closed with the socket: ends every wait */
    int turn[2];       /**< a pipe with one byte in it: who reads it may send. Connections only */
    unsigned users;    /**< references; guarded by the table's mutex */
    atomic_int closed; /**< the number is not valid any more */
    atomic_int blocks; /**< receives and accepts wait */
    atomic_int torn;   /**< a send was cut in the middle, or sending was ended */
    _Atomic int64_t rests_until; /**< a listening socket that lacked resources is left alone */
    /* Of who has the turn to send: */
    uint64_t accepted;     /**< bytes that the system took */
    uint64_t acknowledged; /**< of these, what the peer's side has acknowledged */
    int64_t patience_us;   /**< how long sends may still wait for the peer */
};

/** The socket of a number, with a reference; null, and the code is set, when there is none. */
struct port_socket *port_find(int32_t number);
/** Gives the reference back. */
void port_release(struct port_socket *socket);
/** Makes a socket of a system descriptor, which it takes over in any case; its number, or -1. */
int32_t port_adopt(int fd, int kind);

/** Sets the code of the calling thread and returns -1. */
int32_t port_fail(int32_t code);
/** The same for a system error, of a socket that may have been closed meanwhile. */
int32_t port_fail_errno(const struct port_socket *socket, int error);
/** Waits for events on a socket; 0, or the code of a failure. */
int32_t port_wait_for(struct port_socket *socket, short events);

/** The interface that sockets live on. */
const char *port_interface(void);

/* ---- log (log_text.c) ---- */

/** Copies a message without its secrets; returns the length. */
unsigned long port_hide_secrets(const char *message, char *shown, unsigned long size);
/** Copies a message with what a terminal would obey made visible; returns the length. */
unsigned long port_make_visible(const char *message, char *shown, unsigned long size);
