/* Sockets: the table of numbers, options and addresses. */
#include "internal.h"

#include "platform/memory.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { SOCKETS_MAX = 64, PATIENCE_US = 2000000 };

static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
static struct port_socket *sockets[SOCKETS_MAX];
static int32_t last_number; /**< numbers only rise, so that none comes back */
static _Thread_local int32_t last_code;

int32_t port_fail(int32_t code) {
    last_code = code;
    return -1;
}

int32_t port_fail_errno(const struct port_socket *socket, int error) {
    if (socket != NULL && atomic_load(&socket->closed)) {
        return port_fail(KELO_ERR_BAD_SOCKET);
    }
    switch (error) {
    case EINTR:
        return port_fail(KELO_ERR_INTERRUPTED);
    case EAGAIN:
        return port_fail(KELO_ERR_WOULD_BLOCK);
    default:
        return port_fail(-1000 - error); /* far from the codes that mean something */
    }
}

int32_t kelo_hal_net_get_errno(void) {
    return last_code;
}

struct port_socket *port_find(int32_t number) {
    struct port_socket *found = NULL;
    pthread_mutex_lock(&mutex);
    for (int i = 0; i < SOCKETS_MAX && found == NULL; ++i) {
        if (sockets[i] != NULL && sockets[i]->number == number) {
            found = sockets[i];
            ++found->users;
        }
    }
    pthread_mutex_unlock(&mutex);
    if (found == NULL) {
        (void)port_fail(KELO_ERR_BAD_SOCKET);
    }
    return found;
}

static void close_pipe(const int *ends) {
    for (int i = 0; i < 2; ++i) {
        if (ends[i] >= 0) {
            close(ends[i]);
        }
    }
}

static void destroy(struct port_socket *socket) {
    close(socket->fd);
    close_pipe(socket->gone);
    close_pipe(socket->turn);
    Free(socket);
}

void port_release(struct port_socket *socket) {
    pthread_mutex_lock(&mutex);
    const unsigned left = --socket->users;
    pthread_mutex_unlock(&mutex);
    if (left == 0) {
        destroy(socket);
    }
}

/** Ends a call on a socket: gives the reference back and yields 0, or -1 with errno as the code. */
static int32_t end_call(struct port_socket *socket, int result) {
    const int error = errno;
    const int32_t answer = result == 0 ? 0 : port_fail_errno(socket, error);
    port_release(socket);
    return answer;
}

/** Gives the socket a number and a place in the table; 0 when there is none. */
static int32_t enter(struct port_socket *socket) {
    int32_t number = 0;
    pthread_mutex_lock(&mutex);
    for (int i = 0; i < SOCKETS_MAX && number == 0 && last_number < INT32_MAX - 1; ++i) {
        if (sockets[i] == NULL) {
            number = ++last_number;
            socket->number = number;
            sockets[i] = socket;
        }
    }
    pthread_mutex_unlock(&mutex);
    return number;
}

int32_t port_adopt(int fd, int kind) {
    struct port_socket *socket = Malloc(sizeof *socket);
    if (socket == NULL) {
        close(fd);
        return port_fail_errno(NULL, ENOMEM);
    }
    memset(socket, 0, sizeof *socket);
    socket->fd = fd;
    socket->kind = kind;
    socket->users = 1; /* the table's */
    socket->patience_us = PATIENCE_US;
    atomic_init(&socket->blocks, 1);
    for (int i = 0; i < 2; ++i) {
        socket->gone[i] = socket->turn[i] = -1;
    }
    if (pipe2(socket->gone, O_CLOEXEC) != 0 || pipe2(socket->turn, O_CLOEXEC | O_NONBLOCK) != 0 ||
        write(socket->turn[1], "", 1) != 1) {
        const int error = errno;
        destroy(socket);
        return port_fail_errno(NULL, error);
    }
    const int32_t number = enter(socket);
    if (number == 0) {
        destroy(socket);
        return port_fail_errno(NULL, ENFILE);
    }
    return number;
}

int32_t kelo_hal_net_socket_create(int32_t kind) {
    if (kind != KELO_SOCKET_TCP && kind != KELO_SOCKET_UDP) {
        return port_fail_errno(NULL, EINVAL);
    }
    const int type = kind == KELO_SOCKET_TCP ? SOCK_STREAM : SOCK_DGRAM;
    const char *interface = port_interface();
    const int fd = socket(AF_INET, type | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return port_fail_errno(NULL, errno);
    }
    if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface,
                   (socklen_t)(strlen(interface) + 1)) != 0) {
        const int error = errno;
        close(fd);
        return port_fail_errno(NULL, error);
    }
    return port_adopt(fd, kind);
}

int32_t kelo_hal_net_close(int32_t descriptor) {
    struct port_socket *socket = NULL;
    pthread_mutex_lock(&mutex);
    for (int i = 0; i < SOCKETS_MAX; ++i) {
        if (sockets[i] != NULL && sockets[i]->number == descriptor) {
            socket = sockets[i];
            sockets[i] = NULL;
        }
    }
    pthread_mutex_unlock(&mutex);
    if (socket == NULL) {
        return port_fail(KELO_ERR_BAD_SOCKET);
    }
    atomic_store(&socket->closed, 1);
    shutdown(socket->fd, SHUT_RDWR); /* the peer is told even if somebody still uses the socket */
    close(socket->gone[1]);          /* hangs up at every wait, begun or not */
    socket->gone[1] = -1;
    port_release(socket);
    return 0;
}

int32_t kelo_hal_net_shutdown(int32_t descriptor) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    atomic_store(&socket->torn, 1);
    return end_call(socket, shutdown(socket->fd, SHUT_WR));
}

/** Sets one option of a socket. */
static int32_t set_option(int32_t descriptor, int level, int name, int value) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    return end_call(socket, setsockopt(socket->fd, level, name, &value, sizeof value));
}

int32_t kelo_hal_net_set_bufsize(int32_t descriptor, uint32_t size, int32_t kind) {
    if (kind != KELO_BUFFER_SEND || size > INT32_MAX) {
        return port_fail_errno(NULL, EINVAL);
    }
    return set_option(descriptor, SOL_SOCKET, SO_SNDBUF, (int)size);
}

int32_t kelo_hal_net_set_reuse(int32_t descriptor) {
    return set_option(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
}

int32_t kelo_hal_net_set_boardcast(int32_t descriptor) {
    return set_option(descriptor, SOL_SOCKET, SO_BROADCAST, 1);
}

int32_t kelo_hal_net_set_cloexec(int32_t descriptor) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    return end_call(socket, fcntl(socket->fd, F_SETFD, FD_CLOEXEC));
}

int32_t kelo_hal_net_set_block(int32_t descriptor, bool block) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    atomic_store(&socket->blocks, block ? 1 : 0);
    port_release(socket);
    return 0;
}

int32_t kelo_hal_net_set_keepalive(int32_t descriptor, bool on, uint32_t idle_s,
                                   uint32_t interval_s, uint32_t count) {
    int32_t result = set_option(descriptor, SOL_SOCKET, SO_KEEPALIVE, on ? 1 : 0);
    if (result != 0 || !on) {
        return result;
    }
    return set_option(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, (int)idle_s) == 0 &&
                   set_option(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, (int)interval_s) == 0 &&
                   set_option(descriptor, IPPROTO_TCP, TCP_KEEPCNT, (int)count) == 0
               ? 0
               : -1;
}

static int32_t bind_to(int32_t descriptor, in_addr_t network_order, uint16_t port) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    struct sockaddr_in local = {.sin_family = AF_INET, .sin_port = htons(port)};
    local.sin_addr.s_addr = network_order;
    return end_call(socket, bind(socket->fd, (const struct sockaddr *)&local, sizeof local));
}

int32_t kelo_hal_net_bind(int32_t descriptor, uint32_t address, uint16_t port) {
    return bind_to(descriptor, htonl(address), port);
}

int32_t kelo_hal_net_socket_bind(int32_t descriptor, const char *address) {
    struct in_addr parsed;
    if (inet_pton(AF_INET, address, &parsed) != 1) {
        return port_fail_errno(NULL, EINVAL);
    }
    return bind_to(descriptor, parsed.s_addr, 0);
}

int32_t kelo_hal_net_listen(int32_t descriptor, int32_t backlog) {
    struct port_socket *socket = port_find(descriptor);
    if (socket == NULL) {
        return -1;
    }
    return end_call(socket, listen(socket->fd, backlog));
}
