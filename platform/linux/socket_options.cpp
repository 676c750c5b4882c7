/* Options of sockets. */
#include "descriptor_table.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

using namespace linux_port;

namespace {

/** Sets one option of a socket of the table. */
int32_t set_option(int32_t descriptor, int level, int option, int value) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    return setsockopt(socket->fd, level, option, &value, sizeof value) == 0
               ? 0
               : fail_with_errno(*socket);
}

int as_int(uint32_t value) {
    return static_cast<int>(std::min<uint32_t>(value, INT32_MAX));
}

} // namespace

int32_t kelo_hal_net_set_bufsize(int32_t descriptor, uint32_t size, int32_t kind) {
    // The receive buffer stays with the system, which adapts it: a fixed one halves the speed of
    // long reads that pause.
    if (kind != KELO_BUFFER_SEND) {
        return fail(code_of_errno(EINVAL));
    }
    return set_option(descriptor, SOL_SOCKET, SO_SNDBUF, as_int(size));
}

int32_t kelo_hal_net_set_reuse(int32_t descriptor) {
    return set_option(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
}

int32_t kelo_hal_net_set_cloexec(int32_t descriptor) {
    return find_socket(descriptor) != nullptr ? 0 : -1; // set at its creation
}

int32_t kelo_hal_net_set_boardcast(int32_t descriptor) {
    return set_option(descriptor, SOL_SOCKET, SO_BROADCAST, 1);
}

int32_t kelo_hal_net_set_block(int32_t descriptor, bool block) {
    const socket_ref socket = find_socket(descriptor);
    if (socket == nullptr) {
        return -1;
    }
    socket->blocking = block;
    return 0;
}

int32_t kelo_hal_net_set_keepalive(int32_t descriptor, bool on, uint32_t idle_s,
                                   uint32_t interval_s, uint32_t count) {
    if (set_option(descriptor, SOL_SOCKET, SO_KEEPALIVE, on ? 1 : 0) != 0) {
        return -1;
    }
    if (!on) {
        return 0;
    }
    const bool set = set_option(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, as_int(idle_s)) == 0 &&
                     set_option(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, as_int(interval_s)) == 0 &&
                     set_option(descriptor, IPPROTO_TCP, TCP_KEEPCNT, as_int(count)) == 0;
    return set ? 0 : -1;
}
