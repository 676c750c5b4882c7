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

void tell_connected(const connection_origin &accepted) {
    notify_of_connection(server_event::connected, accepted);
}

void tell_closed(const socket_record &socket) {
    if (socket.served_port != 0) {
        notify({server_event::closed, socket.served_port, 0, {}});
    } else if (socket.accepted_from.server_port != 0) {
        notify_of_connection(server_event::disconnected, socket.accepted_from);
    }
}

} // namespace linux_port
