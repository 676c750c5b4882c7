/* Sockets: creating, binding, accepting, receiving, closing. */
#include "descriptor_table.h"
#include "linux_address.h"
#include "linux_port/port.h"
#include "server_events.h"
#include "thread_state.h"
#include "wait.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace linux_port;

namespace {

/** Address of the peer from which this thread received last, in host order; 0: of none. */
thread_local uint32_t sender_of_thread = 0;

/** Confines a socket to the configured interface. */
bool confine_to_interface(int fd) {
    const std::string &interface = configured_network().interface;
    return interface.empty() || setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface.data(),
                                           static_cast<socklen_t>(interface.size())) == 0;
}

/** A new non-blocking system socket on the configured interface; -1 with errno set. */
int create_system_socket(int32_t kind) {
    const int type = kind == KELO_SOCKET_TCP ? SOCK_STREAM : SOCK_DGRAM;
    const int fd = socket(AF_INET, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd >= 0 && !confine_to_interface(fd)) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

int bind_system_socket(int fd, uint32_t address, uint16_t port) {
    const sockaddr_in local = system_address(address, port);
    return bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local);
}

/** Adds a second socket for datagrams to 255.255.255.255 to a UDP socket on one address: the system
 * delivers these only to sockets bound to that address or to every address. All gateways of a host
 * get them. */
int32_t add_broadcast_socket(socket_record &socket, uint16_t port) {
    const int fd = create_system_socket(KELO_SOCKET_UDP);
    const int on = 1;
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind_system_socket(fd, KELO_ADDRESS_BROADCAST, port) != 0) {
        const int error = errno;
        if (fd >= 0) {
            close(fd);
        }
        return fail(code_of_errno(error));
    }
    socket.broadcast_fd = fd;
    return 0;
}

/** Waits until something can be received; 0, or -1 with the error set. */
int32_t wait_for_input(const socket_record &socket) {
    pollfd watched[] = {{socket.fd, POLLIN, 0}, {socket.broadcast_fd, POLLIN, 0}, {}};
    switch (wait_for(watched, no_deadline)) {
    case wait_end::stopped:
        return fail(KELO_ERR_STOPPED);
    case wait_end::failed:
        return fail_with_errno(socket);
    default:
        return socket.closed ? fail(KELO_ERR_BAD_SOCKET) : 0;
    }
}

/**
 * Runs a system call that receives or accepts until it gives a result, waiting in blocking mode.
 * The 0 that a closed socket gives is no end of the stream.
 *
 * @return its result; -1 with the error set
 */
template <typename Call>
int64_t call_when_ready(const socket_record &socket, Call call) {
    for (;;) {
        const int64_t result = call();
        if (result > 0) {
            return result;
        }
        if (socket.closed) {
            return fail(KELO_ERR_BAD_SOCKET);
        }
        if (result == 0) {
            return 0;
        }
        if (errno == EAGAIN && socket.blocking) {
            if (wait_for_input(socket) != 0) {
                return -1;
            }
        } else if (errno == EAGAIN && told_to_stop()) {
            return fail(KELO_ERR_STOPPED);
        } else if (errno != EINTR) {
            return fail_with_errno();
        }
    }
}

/**
 * Receives a datagram that is not empty, of those that are there.
 *
 * @return its length, at most the room; 0 when the socket was closed; -1 with errno set, EAGAIN
 *     also when many were empty: the caller looks then whether its thread was told to stop
 */
ssize_t receive_datagram(int fd, void *buffer, size_t room, sockaddr_in &sender,
                         const socket_record &socket) {
    constexpr int empty_ones_max = 64;
    for (int tries = 0; tries < empty_ones_max; ++tries) {
        socklen_t size = sizeof sender;
        // With MSG_TRUNC the length is the datagram's, whatever the room.
        const ssize_t received =
            recvfrom(fd, buffer, room, MSG_TRUNC, reinterpret_cast<sockaddr *>(&sender), &size);
        if (received != 0 || socket.closed) {
            return std::min(received, static_cast<ssize_t>(room));
        }
    }
    errno = EAGAIN;
    return -1;
}

/** After an accept that failed: when the cause is a lack of descriptors or memory, select leaves
 * the socket out for a while. Otherwise the waiting connection would be ready at once, and the
 * caller would have no time to serve, and end, other connections. */
void pause_accepting_without_resources(socket_record &socket) {
    constexpr std::chrono::milliseconds accept_pause{250};
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        socket.accept_pause_end = monotonic_clock::now() + accept_pause;
    }
}

} // namespace

std::string linux_port::last_sender() {
    return sender_of_thread == 0 ? std::string() : address_text(sender_of_thread);
}

int32_t kelo_hal_net_socket_create(int32_t kind) {
    if (kind != KELO_SOCKET_TCP && kind != KELO_SOCKET_UDP) {
        return fail(code_of_errno(EINVAL));
    }
    const int fd = create_system_socket(kind);
    return fd >= 0 ? add_socket(fd, kind) : fail_with_errno();
}

int32_t kelo_hal_net_close(int32_t descriptor) {
    const socket_ref socket = take_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    socket->closed = true;
    // Ends the polls of other threads, for good, also on sockets that are not connected (which it
    // reports as an error).
    shutdown(socket->fd, SHUT_RDWR);
    tell_closed(descriptor, *socket);
    return 0;
}

int32_t kelo_hal_net_shutdown(int32_t descriptor) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    socket->sends.end_sending();
    return shutdown(socket->fd, SHUT_WR) == 0 ? 0 : fail_with_errno(*socket);
}

int32_t kelo_hal_net_bind(int32_t descriptor, uint32_t address, uint16_t port) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    const std::string &any_address = configured_network().any_address;
    const bool restricted = address == KELO_ADDRESS_ANY && !any_address.empty();
    if (restricted) {
        address = ntohl(inet_addr(any_address.c_str()));
    }
    if (bind_system_socket(socket->fd, address, port) != 0) {
        tell_failed(*socket, port);
        return fail_with_errno(*socket);
    }
    socket->bound = true;
    socket->datagram_port = socket->kind == KELO_SOCKET_UDP ? port : uint16_t{0};
    const bool receives_broadcasts = restricted && socket->kind == KELO_SOCKET_UDP && port != 0;
    return receives_broadcasts ? add_broadcast_socket(*socket, port) : 0;
}

int32_t kelo_hal_net_socket_bind(int32_t descriptor, const char *address) {
    in_addr parsed{};
    if (address == nullptr || inet_pton(AF_INET, address, &parsed) != 1) {
        return fail(code_of_errno(EINVAL));
    }
    return kelo_hal_net_bind(descriptor, ntohl(parsed.s_addr), 0);
}

int32_t kelo_hal_net_listen(int32_t descriptor, int32_t backlog) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    if (listen(socket->fd, backlog) != 0) {
        return fail_with_errno(*socket);
    }
    tell_listening(*socket);
    return 0;
}

int32_t kelo_hal_net_accept(int32_t descriptor, uint32_t *address, uint16_t *port) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    sockaddr_in peer{};
    int fd = -1;
    const int64_t accepted = call_when_ready(*socket, [&] {
        socklen_t size = sizeof peer;
        fd = accept4(socket->fd, reinterpret_cast<sockaddr *>(&peer), &size,
                     SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            pause_accepting_without_resources(*socket);
        }
        return fd >= 0 ? 1 : -1;
    });
    if (accepted < 0) {
        return -1;
    }
    // Replies and reports are small and follow each other: they must not wait for the
    // acknowledgement of the last one.
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (address != nullptr) {
        *address = ntohl(peer.sin_addr.s_addr);
    }
    if (port != nullptr) {
        *port = ntohs(peer.sin_port);
    }
    const connection_origin origin{ntohl(peer.sin_addr.s_addr), ntohs(peer.sin_port),
                                   socket->served_port};
    const int32_t added = add_socket(fd, KELO_SOCKET_TCP, origin);
    if (added >= 0) {
        tell_connected(added, origin);
    }
    return added;
}

int32_t kelo_hal_net_recv(int32_t descriptor, void *buffer, uint32_t length) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    const size_t wanted = std::min<uint32_t>(length, INT32_MAX);
    const int64_t count =
        call_when_ready(*socket, [&] { return recv(socket->fd, buffer, wanted, 0); });
    if (count < 0 && kelo_hal_net_get_errno() == code_of_errno(ECONNRESET)) {
        socket->peer_has_ended = true;
    } else if (count == 0 && wanted != 0) {
        socket->peer_has_ended = true;
        fail(KELO_ERR_PEER_CLOSED);
    } else if (count > 0) {
        sender_of_thread = socket->accepted_from.peer;
        tell_received(descriptor, *socket,
                      {static_cast<const char *>(buffer), static_cast<size_t>(count)});
    }
    return static_cast<int32_t>(count);
}

int32_t kelo_hal_net_recvfrom(int32_t descriptor, void *buffer, uint32_t length, uint32_t *address,
                              uint16_t *port) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    if (socket->kind != KELO_SOCKET_UDP) {
        return fail(code_of_errno(EINVAL));
    }
    sockaddr_in sender{};
    const size_t room = std::min<uint32_t>(length, INT32_MAX);
    const auto receive_from = [&](int fd) {
        return receive_datagram(fd, buffer, room, sender, *socket);
    };
    const int64_t count = call_when_ready(*socket, [&] {
        const ssize_t received = receive_from(socket->fd);
        const int broadcast_fd = socket->broadcast_fd;
        return received < 0 && errno == EAGAIN && broadcast_fd >= 0 ? receive_from(broadcast_fd)
                                                                    : received;
    });
    if (count >= 0) {
        sender_of_thread = ntohl(sender.sin_addr.s_addr);
        tell_datagram_received(descriptor, *socket,
                               {static_cast<const char *>(buffer), static_cast<size_t>(count)},
                               sender_of_thread, ntohs(sender.sin_port));
    }
    if (count >= 0 && address != nullptr) {
        *address = ntohl(sender.sin_addr.s_addr);
    }
    if (count >= 0 && port != nullptr) {
        *port = ntohs(sender.sin_port);
    }
    return static_cast<int32_t>(count);
}
