/* Peers over BSD sockets, confined to the loopback interface, and a look at the system's sockets.
 */
#include "conformance/posix.h"

#include "slow_system.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum { PEERS_MAX = 16, MEMORY_BYTES = 3 * 1024 * 1024, LOG_SIZE = 65536 };

struct conformance_peer {
    bool in_use;
    int fd;
};

static struct conformance_peer peers[PEERS_MAX];
static _Alignas(max_align_t) char memory[MEMORY_BYTES];
static uint32_t own_address;
static uint16_t next_port;
static char file_path[32];

static struct {
    pthread_mutex_t mutex;
    char text[LOG_SIZE];
    size_t length;
} kept_log = {.mutex = PTHREAD_MUTEX_INITIALIZER};

static void print_line(const char *line) {
    puts(line);
    fflush(stdout);
}

static void give_up(void) {
    _exit(1);
}

static uint64_t now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (uint64_t)now.tv_sec * 1000 + (uint64_t)now.tv_nsec / 1000000;
}

static uint16_t free_port(void) {
    return next_port++;
}

static struct sockaddr_in system_address(uint32_t address, uint16_t port) {
    struct sockaddr_in result;
    memset(&result, 0, sizeof result);
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
}

static conformance_peer_t *open_peer(int type) {
    for (size_t i = 0; i < PEERS_MAX; ++i) {
        if (!peers[i].in_use) {
            peers[i].fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
            if (peers[i].fd < 0 ||
                setsockopt(peers[i].fd, SOL_SOCKET, SO_BINDTODEVICE, "lo", 2) != 0) {
                perror("no socket for a peer");
                exit(1);
            }
            peers[i].in_use = true;
            return &peers[i];
        }
    }
    fputs("more peers at once than the harness has room for\n", stderr);
    exit(1);
}

static void close_peer(conformance_peer_t *peer) {
    close(peer->fd);
    peer->in_use = false;
}

static conformance_peer_t *connect_peer(uint16_t port) {
    const struct sockaddr_in to = system_address(own_address, port);
    const int receive_buffer = 32 * 1024; /* small, so that the port notices what a peer reads */
    conformance_peer_t *peer = open_peer(SOCK_STREAM);
    setsockopt(peer->fd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    if (connect(peer->fd, (const struct sockaddr *)&to, sizeof to) != 0) {
        close_peer(peer);
        return NULL;
    }
    return peer;
}

static conformance_peer_t *open_datagrams(void) {
    const struct sockaddr_in any = system_address(INADDR_ANY, 0);
    const int on = 1;
    conformance_peer_t *peer = open_peer(SOCK_DGRAM);
    setsockopt(peer->fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    bind(peer->fd, (const struct sockaddr *)&any, sizeof any);
    return peer;
}

static void endpoint(conformance_peer_t *peer, uint32_t *address, uint16_t *port) {
    struct sockaddr_in local = system_address(0, 0);
    socklen_t size = sizeof local;
    getsockname(peer->fd, (struct sockaddr *)&local, &size);
    *address = ntohl(local.sin_addr.s_addr);
    *port = ntohs(local.sin_port);
    if (*address == INADDR_ANY) {
        *address = INADDR_LOOPBACK;
    }
}

static bool send_bytes(conformance_peer_t *peer, const void *bytes, size_t length) {
    return send(peer->fd, bytes, length, MSG_NOSIGNAL) == (ssize_t)length;
}

static bool wait_for_input(int fd, uint32_t timeout) {
    struct pollfd watched = {fd, POLLIN, 0};
    return poll(&watched, 1, (int)timeout) > 0;
}

static int32_t receive(conformance_peer_t *peer, void *bytes, size_t size, uint32_t timeout) {
    if (!wait_for_input(peer->fd, timeout)) {
        return -1;
    }
    const ssize_t count = recv(peer->fd, bytes, size, 0);
    return count > 0 ? (int32_t)count : 0;
}

static bool send_to(conformance_peer_t *peer, uint32_t address, uint16_t port, const void *bytes,
                    size_t length) {
    const struct sockaddr_in to = system_address(address, port);
    return sendto(peer->fd, bytes, length, 0, (const struct sockaddr *)&to, sizeof to) ==
           (ssize_t)length;
}

static int32_t receive_from(conformance_peer_t *peer, void *bytes, size_t size, uint32_t timeout,
                            uint32_t *address, uint16_t *port) {
    struct sockaddr_in from = system_address(0, 0);
    socklen_t from_size = sizeof from;
    if (!wait_for_input(peer->fd, timeout)) {
        return -1;
    }
    const ssize_t count = recvfrom(peer->fd, bytes, size, 0, (struct sockaddr *)&from, &from_size);
    *address = ntohl(from.sin_addr.s_addr);
    *port = ntohs(from.sin_port);
    return (int32_t)count;
}

static void reset(conformance_peer_t *peer) {
    const struct linger at_once = {1, 0};
    setsockopt(peer->fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close_peer(peer);
}

/** The system's descriptor of a TCP socket of the port; -1 when there is none. */
static int find_socket(uint16_t local_port, uint16_t peer_port) {
    for (int fd = 0; fd < 1024; ++fd) {
        struct sockaddr_in local = system_address(0, 0);
        struct sockaddr_in remote = system_address(0, 0);
        socklen_t local_size = sizeof local;
        socklen_t remote_size = sizeof remote;
        int type = 0;
        socklen_t type_size = sizeof type;
        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &type_size) == 0 && type == SOCK_STREAM &&
            getsockname(fd, (struct sockaddr *)&local, &local_size) == 0 &&
            ntohs(local.sin_port) == local_port) {
            const bool has_peer = getpeername(fd, (struct sockaddr *)&remote, &remote_size) == 0;
            if (has_peer ? ntohs(remote.sin_port) == peer_port : peer_port == 0) {
                return fd;
            }
        }
    }
    return -1;
}

static bool tell_option(uint16_t local_port, uint16_t peer_port, conformance_option_t option,
                        uint32_t *value) {
    static const struct {
        int level;
        int name;
    } names[] = {
        [CONFORMANCE_NO_DELAY] = {IPPROTO_TCP, TCP_NODELAY},
        [CONFORMANCE_SEND_BUFFER] = {SOL_SOCKET, SO_SNDBUF},
        [CONFORMANCE_KEEP_ALIVE] = {SOL_SOCKET, SO_KEEPALIVE},
        [CONFORMANCE_KEEP_ALIVE_IDLE] = {IPPROTO_TCP, TCP_KEEPIDLE},
        [CONFORMANCE_KEEP_ALIVE_INTERVAL] = {IPPROTO_TCP, TCP_KEEPINTVL},
        [CONFORMANCE_KEEP_ALIVE_COUNT] = {IPPROTO_TCP, TCP_KEEPCNT},
    };
    const int fd = find_socket(local_port, peer_port);
    int answer = 0;
    socklen_t size = sizeof answer;
    if (fd < 0) {
        return false;
    }
    if (option == CONFORMANCE_CLOSE_ON_EXEC) {
        *value = (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? 1 : 0;
        return true;
    }
    if (getsockopt(fd, names[option].level, names[option].name, &answer, &size) != 0) {
        return false;
    }
    *value = (uint32_t)answer;
    return true;
}

static uint32_t permissions(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 ? status.st_mode & 0777 : 0;
}

static void exhaust(bool on) {
    static struct rlimit before;
    struct rlimit none;
    if (!on) {
        setrlimit(RLIMIT_NOFILE, &before);
        return;
    }
    const int next = dup(STDOUT_FILENO);
    close(next);
    getrlimit(RLIMIT_NOFILE, &before);
    none = before;
    none.rlim_cur = (rlim_t)next;
    setrlimit(RLIMIT_NOFILE, &none);
}

void conformance_posix_add_log(const char *line, size_t length) {
    pthread_mutex_lock(&kept_log.mutex);
    if (length + 1 <= sizeof kept_log.text - kept_log.length) {
        memcpy(kept_log.text + kept_log.length, line, length);
        kept_log.text[kept_log.length + length] = '\n';
        kept_log.length += length + 1;
    }
    pthread_mutex_unlock(&kept_log.mutex);
}

static void take_log(char *text, size_t size) {
    pthread_mutex_lock(&kept_log.mutex);
    const size_t length = kept_log.length < size ? kept_log.length : size - 1;
    memcpy(text, kept_log.text, length);
    text[length] = '\0';
    kept_log.length = 0;
    pthread_mutex_unlock(&kept_log.mutex);
}

void conformance_posix_fill(conformance_harness_t *harness, const char *address) {
    struct in_addr parsed;
    if (inet_aton(address, &parsed) == 0) {
        fprintf(stderr, "%s is no IPv4 address\n", address);
        exit(2);
    }
    own_address = ntohl(parsed.s_addr);
    /* Below the ports that the system gives out; by process, so that runs beside each other do not
     * meet. */
    next_port = (uint16_t)(10000 + getpid() % 1000 * 20);
    snprintf(file_path, sizeof file_path, "/tmp/conformance.%d", (int)getpid());
    umask(022); /* takes nothing away from 0755 */
    *harness = (conformance_harness_t){
        .memory = memory,
        .memory_bytes = sizeof memory,
        .stack_bytes = 2048,
        .deep_stack_bytes = 1024 * 1024,
        .send_buffer_bytes = 131072,
        .rounds = 200,
        .ids = 70000,
        .sockets = 100,
        .at_once_ms = 1000,
        .bound_ms = 20000,
        .address = own_address,
        .address_text = address,
        .earliest_time = 1577836800, /* the year 2020 */
        .file_path = file_path,
        .barred_path = "/dev/null/file",
        .full_path = "/dev/full",
        .print = print_line,
        .give_up = give_up,
        .now_ms = now_ms,
        .free_port = free_port,
        .connect = connect_peer,
        .open_datagrams = open_datagrams,
        .endpoint = endpoint,
        .send = send_bytes,
        .receive = receive,
        .send_to = send_to,
        .receive_from = receive_from,
        .close = close_peer,
        .reset = reset,
        .option = tell_option,
        .slow = slow_system(),
        .exhaust = exhaust,
        .permissions = permissions,
        .take_log = take_log,
    };
}
