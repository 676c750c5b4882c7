#include "server_events.h"

#include "linux_address.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace linux_port {

namespace {

server_observer &observer() {
    static auto &instance = *new server_observer;
    return instance;
}

traffic_observer &watcher() {
    static auto &instance = *new traffic_observer;
    return instance;
}

uint16_t bound_port(const socket_record &socket) {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    const bool known = getsockname(socket.fd, reinterpret_cast<sockaddr *>(&local), &size) == 0;
    return known ? ntohs(local.sin_port) : uint16_t{0};
}

void notify(const server_notice &notice) {
    if (observer()) {
        observer()(notice);
    }
}

void notify_of_connection(server_event event, const connection_origin &accepted) {
    if (observer()) {
        notify({event, accepted.server_port, 0, address_text(accepted.peer)});
    }
}

void show_connection(traffic_event event, int32_t descriptor, const connection_origin &accepted,
                     std::string_view bytes, bool peer_has_ended = false) {
    if (watcher() && accepted.server_port != 0) {
        watcher()({event, descriptor, accepted.server_port, bytes, accepted.peer,
                   accepted.peer_port, peer_has_ended});
    }
}

} // namespace

void set_server_observer(server_observer new_observer) {
    observer() = std::move(new_observer);
}

void tell_listening(socket_record &socket) {
    socket.served_port = bound_port(socket);
    notify({server_event::listening, socket.served_port, 0, {}});
}

void tell_failed(const socket_record &socket, uint16_t port) {
    const int error = errno;
    if (socket.kind == KELO_SOCKET_TCP && port != 0) {
        notify({server_event::failed, port, error, {}});
    }
    errno = error;
}

void set_traffic_observer(traffic_observer new_observer) {
    watcher() = std::move(new_observer);
}

void tell_connected(int32_t descriptor, const connection_origin &accepted) {
    notify_of_connection(server_event::connected, accepted);
    show_connection(traffic_event::connected, descriptor, accepted, {});
}

void tell_closed(int32_t descriptor, const socket_record &socket) {
    if (socket.served_port != 0) {
        notify({server_event::closed, socket.served_port, 0, {}});
    } else if (socket.accepted_from.server_port != 0) {
        notify_of_connection(server_event::disconnected, socket.accepted_from);
        show_connection(traffic_event::disconnected, descriptor, socket.accepted_from, {},
                        socket.peer_has_ended);
    }
}

void tell_received(int32_t descriptor, const socket_record &socket, std::string_view bytes) {
    show_connection(traffic_event::received, descriptor, socket.accepted_from, bytes);
}

void tell_sent(int32_t descriptor, const socket_record &socket, std::string_view bytes) {
    show_connection(traffic_event::sent, descriptor, socket.accepted_from, bytes);
}

void tell_datagram_received(int32_t descriptor, const socket_record &socket, std::string_view bytes,
                            uint32_t address, uint16_t port) {
    if (watcher()) {
        watcher()({traffic_event::datagram_received, descriptor, socket.datagram_port, bytes,
                   address, port, false});
    }
}

void tell_datagram_sent(int32_t descriptor, std::string_view bytes, uint32_t address,
                        uint16_t port) {
    if (watcher()) {
        watcher()({traffic_event::datagram_sent, descriptor, port, bytes, address, port, false});
    }
}

std::string address_text(uint32_t address) {
    const in_addr in_system{htonl(address)};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &in_system, text, sizeof text);
    return text;
}

} // namespace linux_port
