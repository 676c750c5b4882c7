#include "server_events.h"

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

void notify(server_event event, uint16_t port, int error) {
    if (observer()) {
        observer()(event, port, error);
    }
}

} // namespace

void set_server_observer(server_observer new_observer) {
    observer() = std::move(new_observer);
}

void tell_listening(socket_record &socket) {
    socket.served_port = bound_port(socket);
    notify(server_event::listening, socket.served_port, 0);
}

void tell_failed(const socket_record &socket, uint16_t port) {
    const int error = errno;
    if (socket.kind == KELO_SOCKET_TCP && port != 0) {
        notify(server_event::failed, port, error);
    }
    errno = error;
}

void tell_closed(const socket_record &socket) {
    if (socket.served_port != 0) {
        notify(server_event::closed, socket.served_port, 0);
    }
}

} // namespace linux_port
