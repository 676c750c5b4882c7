/* Transport of bytes and datagrams. */
#include "network.h"

#include "core.h"

#include <algorithm>

namespace sim {

namespace {
/** Most datagrams that wait in one socket; further ones are lost. */
constexpr size_t datagram_queue_max = 64;
} // namespace

std::string byte_queue::take(size_t count) {
    std::string taken = bytes_.substr(head_, count);
    head_ += taken.size();
    // Moves the rest down now and then, so that the amortised cost of a byte is constant.
    if (head_ == bytes_.size() || head_ > bytes_.size() / 2) {
        bytes_.erase(0, head_);
        head_ = 0;
    }
    return taken;
}

void byte_queue::clear() {
    bytes_.clear();
    head_ = 0;
}

size_t connection::room_to_peer() const {
    const size_t capacity = link.to_peer_bytes_max != 0 ? link.to_peer_bytes_max : send_bytes;
    return capacity > to_peer.size() ? capacity - to_peer.size() : 0;
}

size_t connection::room_to_gateway() const {
    const size_t used = to_gateway.size() + to_gateway_away;
    return link.to_gateway_bytes_max > used ? link.to_gateway_bytes_max - used : 0;
}

bool gateway_socket::readable() const {
    if (condition == state::listening) {
        return !backlog.empty();
    }
    return is_tcp ? condition == state::connected && stream->readable() : !datagrams.empty();
}

bool gateway_socket::writable() const {
    if (!is_tcp) {
        return true;
    }
    return condition == state::connected &&
           (stream->room_to_peer() != 0 || stream->reset || stream->gateway_sends_no_more);
}

bool gateway_socket::exceptional() const {
    return broken || (condition == state::connected && stream->urgent);
}

network::network(core &owner, uint64_t seed) : world(owner), chance(seed) {
    datagrams = owner.chosen.datagrams;
    sockets.resize(3); // numbers 0 to 2 are in use in every process
}

gateway_socket &network::add_socket(bool is_tcp) {
    auto added = std::make_unique<gateway_socket>();
    added->number = static_cast<int32_t>(sockets.size());
    added->is_tcp = is_tcp;
    sockets.push_back(std::move(added));
    return *sockets.back();
}

gateway_socket *network::find(int32_t descriptor) const {
    const bool known = descriptor >= 0 && static_cast<size_t>(descriptor) < sockets.size();
    return known ? sockets[static_cast<size_t>(descriptor)].get() : nullptr;
}

gateway_socket *network::listener(uint16_t port) const {
    for (const auto &socket : sockets) {
        if (socket != nullptr && socket->condition == gateway_socket::state::listening &&
            socket->port == port) {
            return socket.get();
        }
    }
    return nullptr;
}

void network::close(gateway_socket &socket) {
    for (const auto &waiting : socket.backlog) {
        waiting->gateway_reset = true;
        waiting->gateway_closed = true;
        end_to_peer(waiting);
    }
    if (socket.stream != nullptr) {
        if (socket.stream->to_gateway.size() != 0) {
            socket.stream->gateway_reset = true;
            socket.stream->to_peer.clear();
        }
        socket.stream->gateway_closed = true;
        end_to_peer(socket.stream);
    }
    sockets[static_cast<size_t>(socket.number)].reset();
}

bool network::occupied(const gateway_socket &socket, uint32_t address, uint16_t port) const {
    return std::any_of(sockets.begin(), sockets.end(), [&](const auto &other) {
        if (other == nullptr || other.get() == &socket || other->is_tcp != socket.is_tcp ||
            other->port != port || other->condition == gateway_socket::state::connected) {
            return false;
        }
        const bool both_reuse_udp = !socket.is_tcp && socket.reuse && other->reuse;
        const bool overlaps = other->address == address || other->address == KELO_ADDRESS_ANY ||
                              address == KELO_ADDRESS_ANY;
        return overlaps && !both_reuse_udp;
    });
}

uint16_t network::free_port() {
    next_port = next_port == UINT16_MAX ? 50'000 : static_cast<uint16_t>(next_port + 1);
    return next_port;
}

uint32_t network::new_address() {
    next_host = next_host == 254 ? 100 : next_host + 1;
    return (world.chosen.gateway_address & 0xFFFFFF00U) | next_host;
}

void network::arrive(const std::shared_ptr<connection> &stream, uint64_t &last_arrival,
                     std::function<void()> what) {
    const stream_link &link = stream->link;
    const uint64_t now = world.threads.now_ms();
    const uint64_t delay = link.delay_ms_max <= link.delay_ms_min
                               ? link.delay_ms_min
                               : chance.between(link.delay_ms_min, link.delay_ms_max);
    last_arrival = std::max(last_arrival, now + delay);
    world.threads.changed();
    if (last_arrival <= now) {
        what();
        return;
    }
    world.threads.at(last_arrival, [stream, what = std::move(what)] {
        if (!stream->vanished) {
            what();
        }
    });
}

void network::take(const std::shared_ptr<connection> &stream, size_t count) {
    if (count == 0) {
        return;
    }
    std::string bytes = stream->to_peer.take(count);
    stream->to_peer_away += bytes.size();
    stream->taken_by_peer += bytes.size();
    arrive(stream, stream->last_arrival_at_peer, [stream, bytes = std::move(bytes)] {
        stream->to_peer_away -= bytes.size();
        stream->inbox.push(bytes);
    });
}

void network::pump(const std::shared_ptr<connection> &stream) {
    if (stream->vanished) {
        return;
    }
    const size_t ready = stream->to_peer.size();
    switch (stream->mode) {
    case connection::reading::eagerly:
        take(stream, ready);
        break;
    case connection::reading::on_request: {
        const size_t taken = stream->inbox.size() + stream->to_peer_away;
        take(stream, std::min(ready, stream->wanted > taken ? stream->wanted - taken : 0));
        break;
    }
    case connection::reading::slowly:
        if (ready != 0 && !stream->slow_step_planned) {
            stream->slow_step_planned = true;
            world.threads.at(world.threads.now_ms() + stream->slow_every_ms, [this, stream] {
                stream->slow_step_planned = false;
                if (stream->mode == connection::reading::slowly) {
                    take(stream, std::min(stream->to_peer.size(), stream->slow_bytes));
                }
                pump(stream);
            });
        }
        break;
    }
    if (stream->gateway_sends_no_more && stream->to_peer.size() == 0 && !stream->end_on_its_way) {
        stream->end_on_its_way = true;
        arrive(stream, stream->last_arrival_at_peer, [stream] { stream->end_reached_peer = true; });
    }
}

void network::end_to_peer(const std::shared_ptr<connection> &stream) {
    stream->gateway_sends_no_more = true;
    pump(stream);
}

void network::deliver(const datagram &sent, uint32_t address, uint16_t port) {
    if (chance.chance(datagrams.loss_odds)) {
        return;
    }
    const int copies = chance.chance(datagrams.duplicate_odds) ? 2 : 1;
    for (int copy = 0; copy < copies; ++copy) {
        const uint64_t delay = datagrams.delay_ms_max <= datagrams.delay_ms_min
                                   ? datagrams.delay_ms_min
                                   : chance.between(datagrams.delay_ms_min, datagrams.delay_ms_max);
        if (delay == 0) {
            deliver_once(sent, address, port);
        } else {
            world.threads.at(world.threads.now_ms() + delay,
                             [this, sent, address, port] { deliver_once(sent, address, port); });
        }
    }
}

void network::deliver_once(const datagram &sent, uint32_t address, uint16_t port) {
    const bool to_all = address == KELO_ADDRESS_BROADCAST;
    for (const auto &endpoint : endpoints) {
        if (!endpoint->closed && endpoint->port == port &&
            (to_all || endpoint->address == address)) {
            endpoint->arrived.push_back(sent);
        }
    }
    for (const auto &socket : sockets) {
        if (socket == nullptr || socket->is_tcp || socket->port != port || sent.bytes.empty() ||
            socket->datagrams.size() >= datagram_queue_max) {
            continue;
        }
        // A socket at an address of its own gets no broadcasts.
        const bool for_it = socket->address == KELO_ADDRESS_ANY
                                ? to_all || address == world.chosen.gateway_address
                                : address == socket->address;
        if (for_it) {
            socket->datagrams.push_back(sent);
        }
    }
    world.threads.changed();
}

} // namespace sim
