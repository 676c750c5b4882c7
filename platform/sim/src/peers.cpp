/* The test's ends of connections and datagrams. */
#include "sim/peers.h"

#include "core.h"

#include <algorithm>

namespace sim {

peer world::connect(uint16_t port) {
    scheduler &threads = core_->threads;
    network &net = core_->net;
    threads.test_acts();
    threads.point();
    const uint64_t limit = threads.now_ms() + expectation_ms;
    threads.wait(
        {.what = "room in the backlog of port", .detail = port, .deadline = &limit}, [&net, port] {
            const gateway_socket *listener = net.listener(port);
            return listener == nullptr || listener->backlog.size() <= listener->backlog_max;
        });
    gateway_socket *listener = net.listener(port);
    if (listener == nullptr || listener->backlog.size() > listener->backlog_max) {
        return {};
    }
    auto stream = std::make_shared<connection>();
    stream->link = core_->chosen.streams;
    stream->send_bytes = listener->send_bytes;
    stream->peer_address = net.new_address();
    stream->peer_port = net.free_port();
    stream->gateway_port = port;
    listener->backlog.push_back(stream);
    threads.changed();
    threads.point();
    return peer(std::move(stream));
}

bool world::listens(uint16_t port) const {
    return core_->net.listener(port) != nullptr;
}

void world::break_listener(uint16_t port) {
    if (gateway_socket *listener = core_->net.listener(port)) {
        listener->broken = true;
    } else {
        problem("break_listener: nothing listens at port " + std::to_string(port));
    }
    core_->threads.test_acts();
}

udp_peer world::open_udp(uint16_t port) {
    auto endpoint = std::make_shared<udp_endpoint>();
    endpoint->address = core_->net.new_address();
    endpoint->port = port != 0 ? port : core_->net.free_port();
    core_->net.endpoints.push_back(endpoint);
    core_->threads.test_acts();
    return udp_peer(std::move(endpoint));
}

uint32_t peer::address() const {
    return connection_->peer_address;
}

uint16_t peer::port() const {
    return connection_->peer_port;
}

stream_link &peer::link() {
    return connection_->link;
}

bool peer::send(std::span<const uint8_t> bytes) {
    return send(std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
}

bool peer::send(std::string_view bytes) {
    core &world = current_core();
    const auto stream = connection_;
    world.threads.test_acts();
    world.threads.point();
    while (!bytes.empty()) {
        const uint64_t limit = world.threads.now_ms() + expectation_ms;
        const auto broken = [&stream] {
            return stream->gateway_closed || stream->reset || stream->peer_sends_no_more;
        };
        const wake woken = world.threads.wait(
            {.what = "room to send to port", .detail = stream->gateway_port, .deadline = &limit},
            [&] { return broken() || stream->vanished || stream->room_to_gateway() != 0; });
        if (broken() || woken == wake::timed_out) {
            return false;
        }
        if (stream->vanished) {
            return true;
        }
        const size_t step =
            std::min({bytes.size(), stream->room_to_gateway(), stream->link.segment_bytes_max});
        std::string segment(bytes.substr(0, step));
        bytes.remove_prefix(step);
        stream->sent_to_gateway += step;
        stream->to_gateway_away += step;
        world.net.arrive(stream, stream->last_arrival_at_gateway,
                         [stream, segment = std::move(segment)] {
                             stream->to_gateway_away -= segment.size();
                             stream->to_gateway.push(segment);
                         });
        world.threads.point();
    }
    return true;
}

void peer::cut() {
    connection_->cuts.push_back(connection_->sent_to_gateway);
}

void peer::send_urgent() {
    core &world = current_core();
    world.threads.test_acts();
    world.net.arrive(connection_, connection_->last_arrival_at_gateway,
                     [stream = connection_] { stream->urgent = true; });
}

std::string peer::receive(size_t count, uint64_t limit_ms) {
    core &world = current_core();
    const auto stream = connection_;
    world.threads.test_acts();
    const uint64_t limit = world.threads.now_ms() + limit_ms;
    stream->wanted = count;
    world.net.pump(stream);
    world.threads.wait(
        {.what = "bytes from port", .detail = stream->gateway_port, .deadline = &limit},
        [&] { return stream->inbox.size() >= count || stream->end_reached_peer || stream->reset; });
    stream->wanted = 0;
    return stream->inbox.take(std::min(count, stream->inbox.size()));
}

std::string peer::receive_available() {
    return connection_->inbox.take(connection_->inbox.size());
}

size_t peer::available() const {
    return connection_->inbox.size();
}

bool peer::wait_for_end(uint64_t limit_ms) {
    core &world = current_core();
    const auto stream = connection_;
    resume_reading();
    const uint64_t limit = world.threads.now_ms() + limit_ms;
    world.threads.wait({.what = "the end of a connection to port",
                        .detail = stream->gateway_port,
                        .deadline = &limit},
                       [&] { return stream->end_reached_peer || stream->reset; });
    stream->inbox.clear();
    return ended() || was_reset();
}

bool peer::ended() const {
    return connection_->end_reached_peer && connection_->inbox.size() == 0;
}

bool peer::was_reset() const {
    return connection_->reset || (connection_->gateway_reset && connection_->end_reached_peer);
}

void peer::close_sending() {
    core &world = current_core();
    world.threads.test_acts();
    world.threads.point();
    if (connection_->peer_sends_no_more) {
        return;
    }
    connection_->peer_sends_no_more = true;
    world.net.arrive(connection_, connection_->last_arrival_at_gateway,
                     [stream = connection_] { stream->end_reached_gateway = true; });
    world.threads.point();
}

void peer::close() {
    close_sending();
    core &world = current_core();
    world.net.arrive(connection_, connection_->last_arrival_at_gateway, [stream = connection_] {
        stream->peer_closed = true;
        stream->to_peer.clear();
    });
}

void peer::reset() {
    core &world = current_core();
    world.threads.test_acts();
    world.threads.point();
    connection_->peer_sends_no_more = true;
    world.net.arrive(connection_, connection_->last_arrival_at_gateway, [stream = connection_] {
        stream->reset = true;
        stream->peer_closed = true;
        stream->to_peer.clear();
    });
    world.threads.point();
}

void peer::vanish() {
    core &world = current_core();
    world.threads.test_acts();
    connection_->vanished = true;
    for (const auto &socket : world.net.sockets) {
        if (socket != nullptr && socket->stream == connection_ && socket->keepalive_ms != 0) {
            world.threads.at(world.threads.now_ms() + socket->keepalive_ms, [stream = connection_] {
                stream->reset_code = error_no_answer;
                stream->reset = true;
            });
        }
    }
}

void peer::stop_reading() {
    connection_->mode = connection::reading::on_request;
    current_core().threads.test_acts();
}

void peer::resume_reading() {
    core &world = current_core();
    connection_->mode = connection::reading::eagerly;
    world.net.pump(connection_);
    world.threads.test_acts();
}

void peer::read_slowly(size_t bytes, uint32_t every_ms) {
    core &world = current_core();
    connection_->mode = connection::reading::slowly;
    connection_->slow_bytes = bytes;
    connection_->slow_every_ms = every_ms;
    world.net.pump(connection_);
    world.threads.test_acts();
}

uint32_t udp_peer::address() const {
    return endpoint_->address;
}

uint16_t udp_peer::port() const {
    return endpoint_->port;
}

void udp_peer::send(uint16_t gateway_port, std::string_view bytes) {
    send_to(current_core().chosen.gateway_address, gateway_port, bytes);
}

void udp_peer::send_to(uint32_t address, uint16_t port, std::string_view bytes) {
    core &world = current_core();
    world.threads.test_acts();
    world.threads.point();
    world.net.deliver(
        {.bytes = std::string(bytes), .address = endpoint_->address, .port = endpoint_->port},
        address, port);
    world.threads.point();
}

std::optional<datagram> udp_peer::receive(uint64_t limit_ms) {
    core &world = current_core();
    const auto endpoint = endpoint_;
    world.threads.test_acts();
    const uint64_t limit = world.threads.now_ms() + limit_ms;
    world.threads.wait({.what = "a datagram at port", .detail = endpoint->port, .deadline = &limit},
                       [&] { return !endpoint->arrived.empty(); });
    if (endpoint->arrived.empty()) {
        return std::nullopt;
    }
    datagram first = std::move(endpoint->arrived.front());
    endpoint->arrived.pop_front();
    return first;
}

size_t udp_peer::available() const {
    return endpoint_->arrived.size();
}

void udp_peer::close() {
    endpoint_->closed = true;
}

} // namespace sim
