/* Sending: whole buffers in turn on a connection, single datagrams. */
#include "descriptor_table.h"
#include "linux_address.h"
#include "linux_port/port.h"
#include "server_events.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

namespace linux_port {

namespace {

/** How often a waiting send checks for progress; the system reports room only when a third of the
 * buffer is free. */
constexpr std::chrono::milliseconds progress_check{100};

int32_t code_of(send_turn turn, const socket_record &socket) {
    switch (turn) {
    case send_turn::stopped:
        return KELO_ERR_STOPPED;
    case send_turn::failed:
        return code_of_errno(errno);
    default:
        return socket.closed ? int32_t{KELO_ERR_BAD_SOCKET} : code_of_errno(EPIPE);
    }
}

int unacknowledged_bytes(int fd) {
    int bytes = 0;
    return ioctl(fd, SIOCOUTQ, &bytes) == 0 ? bytes : 0;
}

/** Credits what the peer has taken since the last call. */
void restore_patience(socket_record &socket) {
    outgoing &sent = socket.sent;
    const auto queued = static_cast<uint64_t>(unacknowledged_bytes(socket.fd));
    const uint64_t acknowledged = sent.accepted - std::min(queued, sent.accepted);
    if (acknowledged > sent.acknowledged) {
        sent.patience.restore(acknowledged - sent.acknowledged);
        sent.acknowledged = acknowledged;
    }
}

/** Waits until the socket has room; 0, or the code of the failure. */
int32_t wait_for_room(socket_record &socket) {
    platform::send_patience &patience = socket.sent.patience;
    restore_patience(socket);
    auto begin = monotonic_clock::now();
    while (!patience.is_over()) {
        pollfd watched[] = {{socket.fd, POLLOUT, 0}, {}};
        const auto time =
            std::min<platform::send_patience::duration>(patience.left(), progress_check);
        const wait_end end = wait_for(watched, begin + time);
        const auto now = monotonic_clock::now();
        patience.use(std::chrono::ceil<platform::send_patience::duration>(now - begin));
        begin = now;
        restore_patience(socket);
        switch (end) {
        case wait_end::ready:
            return 0;
        case wait_end::stopped:
            return KELO_ERR_STOPPED;
        case wait_end::failed:
            return code_of_errno(errno);
        case wait_end::timed_out:
            break;
        }
    }
    return KELO_ERR_TIMED_OUT;
}

/** Sends the bytes; the number of bytes sent, and in code why they are not all. */
uint32_t send_in_turn(socket_record &socket, const char *bytes, uint32_t length, int32_t &code) {
    uint32_t sent = 0;
    code = 0;
    while (sent < length && code == 0) {
        const ssize_t count = ::send(socket.fd, bytes + sent, length - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<uint32_t>(count);
            socket.sent.accepted += static_cast<uint64_t>(count);
        } else if (errno == EAGAIN) {
            code = wait_for_room(socket);
        } else if (errno != EINTR) {
            code = code_of_errno(errno);
        }
    }
    return sent;
}

/** Makes datagrams leave from the address that this gateway has, not from the first one of the
 * interface. */
bool bind_before_first_send(const socket_record &socket, int32_t descriptor) {
    if (socket.bound || configured_network().any_address.empty()) {
        return true;
    }
    static std::mutex one_at_a_time;
    const std::lock_guard lock(one_at_a_time);
    return socket.bound || kelo_hal_net_bind(descriptor, KELO_ADDRESS_ANY, 0) == 0;
}

} // namespace

} // namespace linux_port

using namespace linux_port;

int32_t kelo_hal_net_send(int32_t descriptor, const void *buffer, uint32_t length) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    if (buffer == nullptr || length > INT32_MAX) {
        return fail(code_of_errno(EINVAL));
    }
    const send_turn turn = socket->sends.take_turn(socket->fd);
    if (turn != send_turn::taken) {
        return fail(code_of(turn, *socket));
    }
    // Before they leave, so that no observer sees the answer first.
    tell_sent(descriptor, *socket, {static_cast<const char *>(buffer), length});
    int32_t code = 0;
    const uint32_t sent = send_in_turn(*socket, static_cast<const char *>(buffer), length, code);
    socket->sends.end_turn(sent > 0 && sent < length);
    if (sent < length) {
        return fail(socket->closed ? int32_t{KELO_ERR_BAD_SOCKET} : code);
    }
    return static_cast<int32_t>(length);
}

int32_t kelo_hal_net_send_to(int32_t descriptor, const void *buffer, uint32_t length,
                             uint32_t address, uint16_t port) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    if (!bind_before_first_send(*socket, descriptor)) {
        return -1;
    }
    const sockaddr_in destination = system_address(address, port);
    const auto deadline = monotonic_clock::now() + platform::send_patience::longest;
    for (;;) {
        const ssize_t count =
            sendto(socket->fd, buffer, length, MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr *>(&destination), sizeof destination);
        if (count >= 0) {
            tell_datagram_sent(descriptor, {static_cast<const char *>(buffer), length}, address,
                               port);
            return static_cast<int32_t>(count);
        }
        if (errno != EAGAIN && errno != EINTR) {
            return fail_with_errno(*socket);
        }
        pollfd watched[] = {{socket->fd, POLLOUT, 0}, {}};
        switch (wait_for(watched, deadline)) {
        case wait_end::ready:
            break;
        case wait_end::stopped:
            return fail(KELO_ERR_STOPPED);
        case wait_end::timed_out:
            return fail(KELO_ERR_TIMED_OUT);
        case wait_end::failed:
            return fail_with_errno(*socket);
        }
    }
}
