/* Sockets of the contract: creation, options, close. */
#include "core.h"

#include <algorithm>
#include <arpa/inet.h>

using sim::operation;

namespace {

sim::gateway_socket *find(int32_t descriptor) {
    return sim::current_core().net.find(descriptor);
}

/** A call that works on its socket only: change(socket) returns 0 or an error code. */
template <typename Change>
int32_t change_socket(sim::call &call, int32_t descriptor, const Change &change) {
    if (call.fails()) {
        return call.failed();
    }
    sim::gateway_socket *socket = find(descriptor);
    if (socket == nullptr) {
        return call.net_error(KELO_ERR_BAD_SOCKET);
    }
    const int32_t code = change(*socket);
    return code == 0 ? call.done(0) : call.net_error(code);
}

int32_t bind_to(sim::gateway_socket &socket, uint32_t address, uint16_t port) {
    sim::network &net = sim::current_core().net;
    if (socket.condition != sim::gateway_socket::state::fresh || socket.port != 0) {
        return sim::error_invalid;
    }
    if (port == 0) {
        port = net.free_port();
    }
    if (net.occupied(socket, address, port)) {
        return sim::error_address_in_use;
    }
    socket.address = address;
    socket.port = port;
    socket.condition = sim::gateway_socket::state::bound;
    return 0;
}

} // namespace

int32_t kelo_hal_net_socket_create(int32_t kind) {
    sim::call call(operation::kelo_hal_net_socket_create, {kind});
    if (call.fails()) {
        return call.failed();
    }
    if (kind != KELO_SOCKET_TCP && kind != KELO_SOCKET_UDP) {
        return call.net_error(sim::error_invalid);
    }
    return call.done(sim::current_core().net.add_socket(kind == KELO_SOCKET_TCP).number);
}

int32_t kelo_hal_net_close(int32_t descriptor) {
    sim::call call(operation::kelo_hal_net_close, {descriptor});
    return change_socket(call, descriptor, [](sim::gateway_socket &socket) {
        sim::current_core().net.close(socket);
        return 0;
    });
}

int32_t kelo_hal_net_shutdown(int32_t descriptor) {
    sim::call call(operation::kelo_hal_net_shutdown, {descriptor});
    return change_socket(call, descriptor, [](sim::gateway_socket &socket) -> int32_t {
        if (socket.stream == nullptr) {
            return sim::error_not_connected;
        }
        sim::current_core().net.end_to_peer(socket.stream);
        return 0;
    });
}

int32_t kelo_hal_net_set_bufsize(int32_t descriptor, uint32_t size, int32_t kind) {
    sim::call call(operation::kelo_hal_net_set_bufsize, {descriptor, size, kind});
    return change_socket(call, descriptor, [&](sim::gateway_socket &socket) -> int32_t {
        if (kind != KELO_BUFFER_SEND || size == 0) {
            return sim::error_invalid;
        }
        socket.send_bytes = size;
        if (socket.stream != nullptr) {
            socket.stream->send_bytes = size;
        }
        return 0;
    });
}

int32_t kelo_hal_net_set_reuse(int32_t descriptor) {
    sim::call call(operation::kelo_hal_net_set_reuse, {descriptor});
    return change_socket(call, descriptor, [](sim::gateway_socket &socket) {
        socket.reuse = true;
        return 0;
    });
}

int32_t kelo_hal_net_set_cloexec(int32_t descriptor) {
    sim::call call(operation::kelo_hal_net_set_cloexec, {descriptor});
    return change_socket(call, descriptor, [](sim::gateway_socket &) { return 0; });
}

int32_t kelo_hal_net_set_boardcast(int32_t descriptor) {
    sim::call call(operation::kelo_hal_net_set_boardcast, {descriptor});
    return change_socket(call, descriptor, [](sim::gateway_socket &socket) {
        socket.broadcast = true;
        return 0;
    });
}

int32_t kelo_hal_net_set_block(int32_t descriptor, bool block) {
    sim::call call(operation::kelo_hal_net_set_block, {descriptor, block ? 1 : 0});
    return change_socket(call, descriptor, [block](sim::gateway_socket &socket) {
        socket.blocking = block;
        return 0;
    });
}

int32_t kelo_hal_net_set_keepalive(int32_t descriptor, bool on, uint32_t idle_s,
                                   uint32_t interval_s, uint32_t count) {
    sim::call call(operation::kelo_hal_net_set_keepalive,
                   {descriptor, on ? 1 : 0, idle_s, interval_s, count});
    return change_socket(call, descriptor, [&](sim::gateway_socket &socket) -> int32_t {
        if (!socket.is_tcp || (on && (idle_s == 0 || interval_s == 0 || count == 0))) {
            return sim::error_invalid;
        }
        socket.keepalive_ms = on ? (uint64_t{idle_s} + uint64_t{interval_s} * count) * 1000 : 0;
        return 0;
    });
}

int32_t kelo_hal_net_bind(int32_t descriptor, uint32_t address, uint16_t port) {
    sim::call call(operation::kelo_hal_net_bind, {descriptor, address, port});
    return change_socket(call, descriptor, [&](sim::gateway_socket &socket) {
        return bind_to(socket, address, port);
    });
}

int32_t kelo_hal_net_socket_bind(int32_t descriptor, const char *address) {
    sim::call call(operation::kelo_hal_net_socket_bind, {descriptor});
    call.note(address != nullptr ? address : "");
    return change_socket(call, descriptor, [&](sim::gateway_socket &socket) -> int32_t {
        in_addr parsed = {};
        if (address == nullptr || inet_pton(AF_INET, address, &parsed) != 1) {
            return sim::error_invalid;
        }
        return bind_to(socket, ntohl(parsed.s_addr), 0);
    });
}

int32_t kelo_hal_net_listen(int32_t descriptor, int32_t backlog) {
    sim::call call(operation::kelo_hal_net_listen, {descriptor, backlog});
    return change_socket(call, descriptor, [&](sim::gateway_socket &socket) -> int32_t {
        if (!socket.is_tcp || socket.condition != sim::gateway_socket::state::bound) {
            return sim::error_invalid;
        }
        socket.condition = sim::gateway_socket::state::listening;
        socket.backlog_max = static_cast<size_t>(std::max(backlog, 1));
        return 0;
    });
}

int32_t kelo_hal_net_get_errno(void) {
    sim::call call(operation::kelo_hal_net_get_errno);
    if (call.fails()) {
        return call.failed();
    }
    return call.done(sim::current_core().threads.self().error_code);
}
