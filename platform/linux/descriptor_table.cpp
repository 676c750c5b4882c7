/*
 * Descriptor numbers count up to 2^31 - 2 and wrap, past those in use: a number comes back after
 * two thousand million sockets, long after anybody can still hold it.
 */
#include "descriptor_table.h"

#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <unordered_map>

namespace linux_port {

namespace {

struct descriptor_table {
    std::mutex mutex;
    std::unordered_map<int32_t, socket_ref> sockets;
    int32_t last_number = 0;
};

/** Never destroyed: threads may still use sockets while the process ends. */
descriptor_table &table() {
    static auto &instance = *new descriptor_table;
    return instance;
}

thread_local int32_t last_error = 0;

} // namespace

socket_record::socket_record(int system_descriptor, int32_t socket_kind, connection_origin origin)
    : fd(system_descriptor), kind(socket_kind), accepted_from(origin) {}

socket_record::~socket_record() {
    close(fd);
    if (broadcast_fd >= 0) {
        close(broadcast_fd);
    }
}

int32_t add_socket(int system_descriptor, int32_t kind, connection_origin accepted_from) {
    try {
        auto socket = std::make_shared<socket_record>(system_descriptor, kind, accepted_from);
        system_descriptor = -1;
        descriptor_table &numbers = table();
        const std::lock_guard lock(numbers.mutex);
        do {
            numbers.last_number = descriptor_after(numbers.last_number);
        } while (numbers.sockets.contains(numbers.last_number));
        numbers.sockets.emplace(numbers.last_number, std::move(socket));
        return numbers.last_number;
    } catch (const std::bad_alloc &) {
        if (system_descriptor >= 0) {
            close(system_descriptor);
        }
        return fail(code_of_errno(ENOMEM));
    }
}

socket_ref find_socket(int32_t descriptor) {
    return socket_finder().find(descriptor);
}

socket_finder::socket_finder() : lock_(table().mutex) {}

socket_ref socket_finder::find(int32_t descriptor) const {
    const descriptor_table &numbers = table();
    const auto found = numbers.sockets.find(descriptor);
    if (found == numbers.sockets.end()) {
        fail(KELO_ERR_BAD_SOCKET);
        return nullptr;
    }
    return found->second;
}

socket_ref take_socket(int32_t descriptor) {
    descriptor_table &numbers = table();
    const std::lock_guard lock(numbers.mutex);
    const auto node = numbers.sockets.extract(descriptor);
    if (node.empty()) {
        fail(KELO_ERR_BAD_SOCKET);
        return nullptr;
    }
    return node.mapped();
}

int32_t fail(int32_t code) {
    last_error = code;
    return -1;
}

int32_t fail_with_errno() {
    return fail(code_of_errno(errno));
}

int32_t fail_with_errno(const socket_record &socket) {
    return fail(socket.closed ? int32_t{KELO_ERR_BAD_SOCKET} : code_of_errno(errno));
}

int32_t code_of_errno(int error) {
    switch (error) {
    case EINTR:
        return KELO_ERR_INTERRUPTED;
    case EAGAIN:
        return KELO_ERR_WOULD_BLOCK;
    case ENOBUFS: // the system is short of memory for a moment
    case ENOMEM:
    case ECONNABORTED: // the connection to be accepted went away; the next one may be there
        return KELO_ERR_TRY_AGAIN;
    default:
        return -1000 - error; // far from the named codes
    }
}

} // namespace linux_port

int32_t kelo_hal_net_get_errno() {
    return linux_port::last_error;
}
