/* Setting up the listening socket. */
#include "listen_socket.h"

#include "base/agent_log.h"
#include "platform/socket.h"

namespace {

constexpr uint32_t server_buffer_size = 0x20000;
constexpr int32_t server_backlog = 5;

/** Configures, binds and listens. Returns 0, or the code of the step that failed, which is logged.
 * */
int32_t prepare(int32_t socket, int32_t port) {
    const auto port16 = static_cast<uint16_t>(port);
    if (kelo_hal_net_set_bufsize(socket, server_buffer_size, KELO_BUFFER_SEND) < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to set bufsize on port:%d errno:%d", port,
                kelo_hal_net_get_errno());
        return -6;
    }
    if (kelo_hal_net_set_reuse(socket) < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to set reuse socket on port:%d errno:%d", port,
                kelo_hal_net_get_errno());
        return -2;
    }
    if (kelo_hal_net_bind(socket, KELO_ADDRESS_ANY, port16) < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to bind socket on port:%d errno:%d", port,
                kelo_hal_net_get_errno());
        return -3;
    }
    if (kelo_hal_net_set_cloexec(socket) < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to set cloexec port:%d errno:%d", port,
                kelo_hal_net_get_errno());
        return -4;
    }
    if (kelo_hal_net_listen(socket, server_backlog) < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to listen on port:%d,errno:%d.", port,
                kelo_hal_net_get_errno());
        return -5;
    }
    return 0;
}

} // namespace

int32_t __setup_tcp_serv_socket(int32_t port) {
    const int32_t socket = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
    if (socket < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Socket creation failed: Port:%d errno:%d", port,
                kelo_hal_net_get_errno());
        return -1;
    }
    const int32_t op_ret = prepare(socket, port);
    if (op_ret != 0) {
        kelo_hal_net_close(socket);
        return op_ret;
    }
    return socket;
}
