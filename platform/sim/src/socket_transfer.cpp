/* Sockets of the contract: waiting, accepting, receiving, sending. */
#include "core.h"

#include <algorithm>
#include <cstring>

using sim::operation;

namespace {

/** Code for a socket that does not support a call: unknown, or of a kind that gives the other code.
 * */
int32_t unfit(const sim::gateway_socket *socket, int32_t of_other_kind) {
    return socket == nullptr ? int32_t{KELO_ERR_BAD_SOCKET} : of_other_kind;
}

/**
 * Waits until ready(socket), unless the socket does not block.
 *
 * @return 0, or an error code
 */
template <typename Ready>
int32_t wait_for_socket(int32_t descriptor, const char *what, const Ready &ready) {
    sim::core &core = sim::current_core();
    const sim::network &net = core.net;
    if (!ready(*net.find(descriptor))) {
        if (!net.find(descriptor)->blocking) {
            return core.threads.self().told_to_stop ? KELO_ERR_STOPPED : KELO_ERR_WOULD_BLOCK;
        }
        const sim::wake woken = core.threads.wait(
            {.what = what, .detail = descriptor, .stoppable = true}, [&net, &ready, descriptor] {
                const sim::gateway_socket *socket = net.find(descriptor);
                return socket == nullptr || ready(*socket);
            });
        if (woken == sim::wake::stopped) {
            return KELO_ERR_STOPPED;
        }
    }
    return net.find(descriptor) == nullptr ? KELO_ERR_BAD_SOCKET : 0;
}

/** The sets of one select, and what is ready in them. */
struct selection {
    int32_t descriptor_count;
    kelo_fd_set_t *sets[3];

    [[nodiscard]] static bool is_ready(const sim::gateway_socket &socket, size_t kind) {
        return kind == 0 ? socket.readable() : kind == 1 ? socket.writable() : socket.exceptional();
    }

    /** Calls visit(kind, descriptor) for each watched one. */
    template <typename Visit>
    void each(const Visit &visit) const {
        for (size_t kind = 0; kind < std::size(sets); ++kind) {
            for (uint32_t index = 0; sets[kind] != nullptr && index < sets[kind]->count; ++index) {
                if (sets[kind]->descriptors[index] < descriptor_count) {
                    visit(kind, sets[kind]->descriptors[index]);
                }
            }
        }
    }
    [[nodiscard]] bool has_unknown() const {
        bool unknown = false;
        each([&](size_t, int32_t descriptor) {
            unknown = unknown || sim::current_core().net.find(descriptor) == nullptr;
        });
        return unknown;
    }
    [[nodiscard]] bool has_ready() const {
        bool ready = false;
        each([&](size_t kind, int32_t descriptor) {
            ready = ready || is_ready(*sim::current_core().net.find(descriptor), kind);
        });
        return ready;
    }
    /** Reduces the sets to the ready members; returns their number. */
    int32_t cut_down() {
        kelo_fd_set_t kept[3] = {};
        each([&](size_t kind, int32_t descriptor) {
            if (is_ready(*sim::current_core().net.find(descriptor), kind)) {
                kelo_hal_net_fd_set(descriptor, &kept[kind]);
            }
        });
        int32_t count = 0;
        for (size_t kind = 0; kind < std::size(sets); ++kind) {
            if (sets[kind] != nullptr) {
                *sets[kind] = kept[kind];
                count += static_cast<int32_t>(kept[kind].count);
            }
        }
        return count;
    }
};

} // namespace

int32_t kelo_hal_net_select(int32_t descriptor_count, kelo_fd_set_t *read_set,
                            kelo_fd_set_t *write_set, kelo_fd_set_t *exception_set,
                            uint32_t milliseconds) {
    sim::call call(operation::kelo_hal_net_select, {descriptor_count, milliseconds});
    if (call.fails()) {
        return call.failed();
    }
    selection watched = {descriptor_count, {read_set, write_set, exception_set}};
    sim::scheduler &threads = sim::current_core().threads;
    const uint64_t end = threads.now_ms() + milliseconds;
    const sim::wake woken =
        threads.wait({.what = "select", .deadline = &end, .stoppable = true},
                     [&watched] { return watched.has_unknown() || watched.has_ready(); });
    if (watched.has_unknown()) {
        return call.net_error(KELO_ERR_BAD_SOCKET);
    }
    if (woken == sim::wake::stopped) {
        return call.net_error(KELO_ERR_STOPPED);
    }
    return call.done(watched.cut_down());
}

int32_t kelo_hal_net_accept(int32_t descriptor, uint32_t *address, uint16_t *port) {
    sim::call call(operation::kelo_hal_net_accept, {descriptor});
    if (call.fails()) {
        return call.failed();
    }
    sim::network &net = sim::current_core().net;
    const sim::gateway_socket *listener = net.find(descriptor);
    if (listener == nullptr) {
        return call.net_error(KELO_ERR_BAD_SOCKET);
    }
    if (listener->condition != sim::gateway_socket::state::listening) {
        return call.net_error(sim::error_invalid);
    }
    const int32_t code =
        wait_for_socket(descriptor, "a connection to socket",
                        [](const sim::gateway_socket &socket) { return socket.readable(); });
    if (code != 0) {
        return call.net_error(code);
    }
    sim::gateway_socket &accepted = net.add_socket(true);
    sim::gateway_socket &from = *net.find(descriptor);
    accepted.stream = from.backlog.front();
    from.backlog.pop_front();
    accepted.condition = sim::gateway_socket::state::connected;
    accepted.address = from.address;
    accepted.port = from.port;
    accepted.send_bytes = from.send_bytes;
    if (address != nullptr) {
        *address = accepted.stream->peer_address;
    }
    if (port != nullptr) {
        *port = accepted.stream->peer_port;
    }
    return call.done(accepted.number);
}

int32_t kelo_hal_net_recv(int32_t descriptor, void *buffer, uint32_t length) {
    sim::call call(operation::kelo_hal_net_recv, {descriptor, length});
    if (call.fails()) {
        return call.failed();
    }
    sim::network &net = sim::current_core().net;
    const sim::gateway_socket *socket = net.find(descriptor);
    if (socket == nullptr || socket->stream == nullptr) {
        return call.net_error(unfit(socket, sim::error_not_connected));
    }
    const int32_t code =
        wait_for_socket(descriptor, "bytes from socket",
                        [](const sim::gateway_socket &from) { return from.readable(); });
    if (code != 0) {
        return call.net_error(code);
    }
    sim::connection &stream = *net.find(descriptor)->stream;
    stream.urgent = false;
    uint64_t count = std::min(call.part_of(length), stream.to_gateway.size());
    if (stream.to_gateway.size() == 0) {
        if (stream.reset) {
            return call.net_error(stream.reset_code);
        }
        sim::current_core().threads.self().error_code = KELO_ERR_PEER_CLOSED;
        return call.done(0);
    }
    while (!stream.cuts.empty() && stream.cuts.front() <= stream.received_by_gateway) {
        stream.cuts.pop_front();
    }
    if (!stream.cuts.empty()) {
        count = std::min(count, stream.cuts.front() - stream.received_by_gateway);
    }
    if (count > 1 && net.chance.chance(stream.link.short_read_odds)) {
        count = net.chance.between(1, count);
    }
    const std::string bytes = stream.to_gateway.take(static_cast<size_t>(count));
    std::memcpy(buffer, bytes.data(), bytes.size());
    stream.received_by_gateway += bytes.size();
    call.note(bytes);
    return call.done(static_cast<int32_t>(bytes.size()));
}

int32_t kelo_hal_net_recvfrom(int32_t descriptor, void *buffer, uint32_t length, uint32_t *address,
                              uint16_t *port) {
    sim::call call(operation::kelo_hal_net_recvfrom, {descriptor, length});
    if (call.fails()) {
        return call.failed();
    }
    sim::network &net = sim::current_core().net;
    const sim::gateway_socket *socket = net.find(descriptor);
    if (socket == nullptr || socket->is_tcp) {
        return call.net_error(unfit(socket, sim::error_invalid));
    }
    const int32_t code =
        wait_for_socket(descriptor, "a datagram for socket",
                        [](const sim::gateway_socket &from) { return from.readable(); });
    if (code != 0) {
        return call.net_error(code);
    }
    auto &waiting = net.find(descriptor)->datagrams;
    const sim::datagram received = std::move(waiting.front());
    waiting.pop_front();
    const size_t count = std::min(call.part_of(length), received.bytes.size());
    std::memcpy(buffer, received.bytes.data(), count);
    call.note(buffer, count);
    if (address != nullptr) {
        *address = received.address;
    }
    if (port != nullptr) {
        *port = received.port;
    }
    return call.done(static_cast<int32_t>(count));
}

namespace {

/** The error that keeps a connection from sending; 0 when it can send. */
int32_t send_obstacle(const sim::connection &stream) {
    if (stream.reset) {
        return stream.reset_code;
    }
    return stream.gateway_sends_no_more || stream.torn ? int32_t{sim::error_not_connected} : 0;
}

/** Credits what the peer has taken since the last call. */
void restore_patience(sim::connection &stream) {
    stream.patience.restore(stream.taken_by_peer - stream.restored_for);
    stream.restored_for = stream.taken_by_peer;
}

/**
 * Waits until ready(socket).
 *
 * @param deadline  end of the wait, ms; null: none
 * @return 0, or an error code
 */
template <typename Ready>
int32_t wait_to_send(int32_t descriptor, const uint64_t *deadline, const char *what,
                     const Ready &ready) {
    sim::core &core = sim::current_core();
    while (true) {
        const sim::gateway_socket *socket = core.net.find(descriptor);
        if (socket == nullptr) {
            return KELO_ERR_BAD_SOCKET;
        }
        if (const int32_t obstacle = send_obstacle(*socket->stream); obstacle != 0) {
            return obstacle;
        }
        if (ready(*socket)) {
            return 0;
        }
        if (deadline != nullptr && core.threads.now_ms() >= *deadline) {
            return KELO_ERR_TIMED_OUT;
        }
        const sim::wake woken = core.threads.wait(
            {.what = what, .detail = descriptor, .deadline = deadline, .stoppable = true},
            [&core, &ready, descriptor] {
                const sim::gateway_socket *now = core.net.find(descriptor);
                return now == nullptr || send_obstacle(*now->stream) != 0 || ready(*now);
            });
        if (woken == sim::wake::stopped) {
            return KELO_ERR_STOPPED;
        }
    }
}

/** Waits for room, no longer than the connection's patience lasts. Returns 0, or an error code */
int32_t wait_for_room(int32_t descriptor) {
    using std::chrono::milliseconds;
    sim::core &core = sim::current_core();
    const std::shared_ptr<sim::connection> stream = core.net.find(descriptor)->stream;
    restore_patience(*stream);
    const uint64_t begin = core.threads.now_ms();
    const uint64_t deadline =
        begin +
        static_cast<uint64_t>(std::chrono::ceil<milliseconds>(stream->patience.left()).count());
    const int32_t code = wait_to_send(
        descriptor, &deadline, "room on socket", [](const sim::gateway_socket &socket) {
            return socket.stream->peer_closed || socket.stream->room_to_peer() != 0;
        });
    stream->patience.use(milliseconds(core.threads.now_ms() - begin));
    restore_patience(*stream);
    return code;
}

/**
 * Sends count bytes of the thread whose turn it is.
 *
 * @param[out] sent  bytes that were accepted
 * @return 0, or an error code
 */
int32_t send_in_turn(int32_t descriptor, std::string_view bytes, size_t &sent) {
    sim::core &core = sim::current_core();
    while (sent < bytes.size()) {
        const int32_t code =
            core.net.find(descriptor) != nullptr ? wait_for_room(descriptor) : KELO_ERR_BAD_SOCKET;
        if (code != 0) {
            return code;
        }
        const std::shared_ptr<sim::connection> stream = core.net.find(descriptor)->stream;
        if (stream->peer_closed) {
            // The peer has closed and answers with a reset: later sends fail.
            stream->reset = true;
            sent = bytes.size();
            return 0;
        }
        const size_t step =
            std::min({bytes.size() - sent, stream->room_to_peer(), stream->link.segment_bytes_max});
        stream->to_peer.push(bytes.substr(sent, step));
        sent += step;
        core.net.pump(stream);
        core.threads.changed();
        if (sent < bytes.size()) {
            core.threads.point();
        }
    }
    return 0;
}

} // namespace

int32_t kelo_hal_net_send(int32_t descriptor, const void *buffer, uint32_t length) {
    sim::call call(operation::kelo_hal_net_send, {descriptor, length});
    call.note(buffer, length);
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    const sim::gateway_socket *socket = core.net.find(descriptor);
    if (socket == nullptr || socket->stream == nullptr) {
        return call.net_error(unfit(socket, sim::error_not_connected));
    }
    int32_t code = wait_to_send(descriptor, nullptr, "a turn to send on socket",
                                [](const sim::gateway_socket &to) { return to.sender == nullptr; });
    if (code != 0) {
        return call.net_error(code);
    }
    core.net.find(descriptor)->sender = &core.threads.self();
    const size_t wanted = call.part_of(length);
    size_t sent = 0;
    code = send_in_turn(descriptor, {static_cast<const char *>(buffer), wanted}, sent);
    if (sim::gateway_socket *now = core.net.find(descriptor)) {
        now->sender = nullptr;
        now->stream->torn = now->stream->torn || (sent != 0 && sent < length);
        core.threads.changed();
    }
    return code == 0 ? call.done(static_cast<int32_t>(sent)) : call.net_error(code);
}

int32_t kelo_hal_net_send_to(int32_t descriptor, const void *buffer, uint32_t length,
                             uint32_t address, uint16_t port) {
    sim::call call(operation::kelo_hal_net_send_to, {descriptor, length, address, port});
    call.note(buffer, length);
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::gateway_socket *socket = core.net.find(descriptor);
    if (socket == nullptr || socket->is_tcp) {
        return call.net_error(unfit(socket, sim::error_invalid));
    }
    if (address == KELO_ADDRESS_BROADCAST && !socket->broadcast) {
        return call.net_error(sim::error_no_broadcast);
    }
    if (socket->port == 0) {
        socket->port = core.net.free_port();
    }
    const size_t wanted = call.part_of(length);
    core.net.deliver({.bytes = std::string(static_cast<const char *>(buffer), wanted),
                      .address = socket->address != KELO_ADDRESS_ANY ? socket->address
                                                                     : core.chosen.gateway_address,
                      .port = socket->port},
                     address, port);
    return call.done(static_cast<int32_t>(wanted));
}
