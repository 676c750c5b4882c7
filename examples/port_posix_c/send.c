/* Sends: whole buffers in turn, with bounded patience for the peer. */
#include "internal.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

enum {
    PATIENCE_US = 2000000,
    LEAST_RATE = 65536, /**< bytes that give back a second */
    LOOK_MS = 100       /**< how often a wait looks at what the peer has acknowledged: the system
                           tells of room only when a good part of the buffer is free */
};

/** Gives back the patience that the peer has earned since the last look. */
static void restore_patience(struct port_socket *socket) {
    int unacknowledged = 0;
    if (ioctl(socket->fd, SIOCOUTQ, &unacknowledged) != 0) {
        return;
    }
    const uint64_t acknowledged = socket->accepted - (uint64_t)unacknowledged;
    if (acknowledged > socket->acknowledged && acknowledged <= socket->accepted) {
        const uint64_t taken = acknowledged - socket->acknowledged;
        const uint64_t counted = taken < 2 * LEAST_RATE ? taken : 2 * LEAST_RATE;
        socket->acknowledged = acknowledged;
        socket->patience_us += (int64_t)(counted * 1000000 / LEAST_RATE);
        if (socket->patience_us > PATIENCE_US) {
            socket->patience_us = PATIENCE_US;
        }
    }
}

/** Waits for room with what patience is left; 0, or the code of a failure. */
static int32_t wait_for_room(struct port_socket *socket) {
    restore_patience(socket);
    while (socket->patience_us > 0) {
        struct pollfd watched[3] = {{socket->fd, POLLOUT, 0}, {socket->gone[0], POLLIN, 0}};
        const int64_t start = port_now_ms();
        const int64_t left = socket->patience_us / 1000 + 1;
        const enum wake wake = port_wait(watched, 2, start + (left < LOOK_MS ? left : LOOK_MS));
        socket->patience_us -= (port_now_ms() - start) * 1000;
        restore_patience(socket);
        if (wake == WAKE_STOPPED) {
            return KELO_ERR_STOPPED;
        }
        if (atomic_load(&socket->closed)) {
            return KELO_ERR_BAD_SOCKET;
        }
        if (wake == WAKE_READY) {
            return 0;
        }
    }
    return KELO_ERR_TIMED_OUT;
}

/** Waits for the turn to send; 0, or the code of a failure. */
static int32_t take_turn(struct port_socket *socket) {
    char token;
    while (read(socket->turn[0], &token, 1) != 1) {
        struct pollfd watched[3] = {{socket->turn[0], POLLIN, 0}, {socket->gone[0], POLLIN, 0}};
        if (port_wait(watched, 2, INT64_MAX) == WAKE_STOPPED) {
            return KELO_ERR_STOPPED;
        }
        if (atomic_load(&socket->closed)) {
            return KELO_ERR_BAD_SOCKET;
        }
    }
    return 0;
}

/** Sends all bytes, holding the turn; 0, or the code of the failure. */
static int32_t send_all(struct port_socket *socket, const char *bytes, uint32_t length) {
    uint32_t sent = 0;
    int32_t code = 0;
    while (sent < length && code == 0) {
        if (atomic_load(&socket->torn)) {
            (void)port_fail_errno(socket, EPIPE);
            return kelo_hal_net_get_errno();
        }
        const ssize_t count = send(socket->fd, bytes + sent, length - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += (uint32_t)count;
            socket->accepted += (uint64_t)count;
        } else if (errno == EAGAIN) {
            code = wait_for_room(socket);
        } else if (errno != EINTR) {
            (void)port_fail_errno(socket, errno);
            code = kelo_hal_net_get_errno();
        }
    }
    if (code != 0 && sent != 0) {
        atomic_store(&socket->torn, 1); /* nothing may follow half a buffer */
    }
    return code;
}

int32_t kelo_hal_net_send(int32_t descriptor, const void *buffer, uint32_t length) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    int32_t code = take_turn(socket);
    if (code == 0) {
        code = send_all(socket, buffer, length);
        (void)!write(socket->turn[1], "", 1);
    }
    port_release(socket);
    return code == 0 ? (int32_t)length : port_fail(code);
}

int32_t kelo_hal_net_send_to(int32_t descriptor, const void *buffer, uint32_t length,
                             uint32_t address, uint16_t port) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    struct sockaddr_in peer = {.sin_family = AF_INET, .sin_port = htons(port)};
    peer.sin_addr.s_addr = htonl(address);
    int32_t code = 0;
    ssize_t count;
    while ((count = sendto(socket->fd, buffer, length, MSG_NOSIGNAL, (const struct sockaddr *)&peer,
                           sizeof peer)) < 0 &&
           code == 0) {
        if (errno == EAGAIN) {
            code = port_wait_for(socket, POLLOUT);
        } else if (errno != EINTR) {
            (void)port_fail_errno(socket, errno);
            code = kelo_hal_net_get_errno();
        }
    }
    if (count < 0) {
        (void)port_fail(code);
    }
    port_release(socket);
    return (int32_t)count;
}
