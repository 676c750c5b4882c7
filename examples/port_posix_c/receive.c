/* Select, accepts and receives. */
#include "internal.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

/** How long a listening socket is left alone after an accept that lacked resources. */
enum { REST_MS = 250 };

int32_t port_wait_for(struct port_socket *socket, short events) {
    struct pollfd watched[3] = {{socket->fd, events, 0}, {socket->gone[0], POLLIN, 0}};
    if (port_wait(watched, 2, INT64_MAX) == WAKE_STOPPED) {
        return KELO_ERR_STOPPED;
    }
    return atomic_load(&socket->closed) ? KELO_ERR_BAD_SOCKET : 0;
}

/* ---- select ---- */

enum { SETS = 3, WATCHED_MAX = SETS * KELO_FD_SET_CAPACITY };

/** What one select watches. */
struct watch {
    struct port_socket *sockets[WATCHED_MAX];
    kelo_fd_set_t *sets[WATCHED_MAX];          /**< the set that the socket is a member of */
    struct pollfd polled[2 * WATCHED_MAX + 1]; /**< each socket, and behind it its end */
    unsigned count;
    int64_t until;
};

/** Adds the members of a set; 0, or -1 when one is unknown. */
static int32_t watch_set(struct watch *watch, kelo_fd_set_t *set, int32_t below, short events) {
    for (uint32_t i = 0; set != NULL && i < set->count && i < KELO_FD_SET_CAPACITY; ++i) {
        if (set->descriptors[i] >= below) {
            continue;
        }
        struct port_socket *socket = port_find(set->descriptors[i]);
        if (socket == NULL) {
            return -1;
        }
        const int64_t rests_until = atomic_load(&socket->rests_until);
        const int rests = rests_until > port_now_ms();
        if (rests && rests_until < watch->until) {
            watch->until = rests_until;
        }
        watch->sockets[watch->count] = socket;
        watch->sets[watch->count] = set;
        watch->polled[2 * watch->count] = (struct pollfd){rests ? -1 : socket->fd, events, 0};
        watch->polled[2 * watch->count + 1] = (struct pollfd){socket->gone[0], POLLIN, 0};
        ++watch->count;
    }
    return 0;
}

static void release_all(struct watch *watch) {
    for (unsigned i = 0; i < watch->count; ++i) {
        port_release(watch->sockets[i]);
    }
}

static int32_t keep_ready(const struct watch *watch, kelo_fd_set_t **sets) {
    int32_t ready = 0;
    for (int i = 0; i < SETS; ++i) {
        if (sets[i] != NULL) {
            kelo_hal_net_fd_zero(sets[i]);
        }
    }
    for (unsigned i = 0; i < watch->count; ++i) {
        const short wanted = watch->polled[2 * i].events;
        const short always = wanted == POLLPRI ? 0 : POLLERR | POLLHUP;
        if ((watch->polled[2 * i].revents & (wanted | always)) != 0) {
            kelo_hal_net_fd_set(watch->sockets[i]->number, watch->sets[i]);
            ++ready;
        }
    }
    return ready;
}

static int any_closed(const struct watch *watch) {
    for (unsigned i = 0; i < watch->count; ++i) {
        if (atomic_load(&watch->sockets[i]->closed)) {
            return 1;
        }
    }
    return 0;
}

/** One wait of a select; -2 when it has to begin again, since a listening socket has rested. */
static int32_t select_once(int32_t below, kelo_fd_set_t **sets, int64_t until) {
    static const short events[SETS] = {POLLIN, POLLOUT, POLLPRI};
    struct watch watch;
    int32_t result = 0;
    watch.count = 0;
    watch.until = until;
    for (int i = 0; i < SETS && result == 0; ++i) {
        result = watch_set(&watch, sets[i], below, events[i]);
    }
    if (result == 0) {
        const enum wake wake = port_wait(watch.polled, 2 * watch.count, watch.until);
        if (any_closed(&watch)) {
            result = port_fail(KELO_ERR_BAD_SOCKET);
        } else if (wake == WAKE_STOPPED) {
            result = port_fail(KELO_ERR_STOPPED);
        } else if (wake == WAKE_TIME && watch.until < until) {
            result = -2;
        } else {
            result = keep_ready(&watch, sets);
        }
    }
    release_all(&watch);
    return result;
}

int32_t kelo_hal_net_select(int32_t descriptor_count, kelo_fd_set_t *read_set,
                            kelo_fd_set_t *write_set, kelo_fd_set_t *exception_set,
                            uint32_t milliseconds) {
    kelo_fd_set_t *sets[SETS] = {read_set, write_set, exception_set};
    const int64_t until = port_now_ms() + milliseconds;
    int32_t result;
    do {
        result = select_once(descriptor_count, sets, until);
    } while (result == -2);
    return result;
}

/* ---- accepts and receives ---- */

static int lacks_resources(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

/** Whether a call that found nothing shall be tried again; else the code is set. */
static int wait_and_retry(struct port_socket *socket, int error, short events) {
    if (atomic_load(&socket->closed)) {
        return port_fail(KELO_ERR_BAD_SOCKET) == 0;
    }
    if (error == EINTR) {
        return 1;
    }
    if (error != EAGAIN) {
        return port_fail_errno(socket, error) == 0;
    }
    if (port_is_stopped()) {
        return port_fail(KELO_ERR_STOPPED) == 0;
    }
    if (!atomic_load(&socket->blocks)) {
        return port_fail(KELO_ERR_WOULD_BLOCK) == 0;
    }
    const int32_t code = port_wait_for(socket, events);
    return code == 0 || port_fail(code) == 0;
}

static int32_t accept_on(struct port_socket *listening, uint32_t *address, uint16_t *port) {
    struct sockaddr_in peer;
    socklen_t size = sizeof peer;
    const int on = 1;
    int fd;
    while ((fd = accept4(listening->fd, (struct sockaddr *)&peer, &size,
                         SOCK_NONBLOCK | SOCK_CLOEXEC)) < 0) {
        const int error = errno;
        if (lacks_resources(error)) {
            atomic_store(&listening->rests_until, port_now_ms() + REST_MS);
        }
        if (!wait_and_retry(listening, error, POLLIN)) {
            return -1;
        }
        size = sizeof peer;
    }
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (address != NULL) {
        *address = ntohl(peer.sin_addr.s_addr);
    }
    if (port != NULL) {
        *port = ntohs(peer.sin_port);
    }
    const int32_t number = port_adopt(fd, KELO_SOCKET_TCP);
    if (number < 0) {
        atomic_store(&listening->rests_until, port_now_ms() + REST_MS);
    }
    return number;
}

int32_t kelo_hal_net_accept(int32_t descriptor, uint32_t *address, uint16_t *port) {
    struct port_socket *listening = port_find(descriptor);
    if (listening == NULL) {
        return -1;
    }
    const int32_t number = accept_on(listening, address, port);
    port_release(listening);
    return number;
}

int32_t kelo_hal_net_recv(int32_t descriptor, void *buffer, uint32_t length) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    const size_t size = length > INT32_MAX ? INT32_MAX : length;
    ssize_t count;
    do {
        count = recv(socket->fd, buffer, size, 0);
    } while (count < 0 && wait_and_retry(socket, errno, POLLIN));
    if (count == 0 && length != 0) {
        (void)port_fail(atomic_load(&socket->closed) ? KELO_ERR_BAD_SOCKET : KELO_ERR_PEER_CLOSED);
        count = atomic_load(&socket->closed) ? -1 : 0;
    }
    port_release(socket);
    return (int32_t)count;
}

int32_t kelo_hal_net_recvfrom(int32_t descriptor, void *buffer, uint32_t length, uint32_t *address,
                              uint16_t *port) {
    struct port_socket *socket = port_find(descriptor);
    struct sockaddr_in peer;
    socklen_t size;
    ssize_t count;
    if (socket == NULL) {
        return -1;
    }
    if (socket->kind != KELO_SOCKET_UDP) {
        port_release(socket);
        return port_fail_errno(NULL, EINVAL);
    }
    do { /* empty datagrams are dropped; so is what a closed socket returns */
        size = sizeof peer;
        count = recvfrom(socket->fd, buffer, length, 0, (struct sockaddr *)&peer, &size);
    } while ((count == 0 && !atomic_load(&socket->closed)) ||
             (count < 0 && wait_and_retry(socket, errno, POLLIN)));
    if (count > 0 && address != NULL) {
        *address = ntohl(peer.sin_addr.s_addr);
    }
    if (count > 0 && port != NULL) {
        *port = ntohs(peer.sin_port);
    }
    const int32_t result = count > 0 ? (int32_t)count : -1;
    if (count == 0) {
        (void)port_fail(KELO_ERR_BAD_SOCKET);
    }
    port_release(socket);
    return result;
}
