/* The TCP server task: waits for a network, listens, and serves up to ten apps. */
#include "server_task.h"

#include "base/agent_log.h"
#include "base/agent_use.h"
#include "clients/client_table.h"
#include "frame_reader.h"
#include "gateway/gateway.h"
#include "listen_socket.h"
#include "platform/clock.h"
#include "platform/network.h"
#include "platform/socket.h"

#include <cerrno>
#include <utility>

namespace {

constexpr int32_t server_port = 6668;
constexpr uint32_t retry_pause_ms = 1500;
constexpr uint32_t select_wait_ms = 10000;
/** Pause before another attempt after a failed accept. */
constexpr uint32_t accept_retry_ms = 100;

constexpr uint32_t keepalive_idle_s = 30;
constexpr uint32_t keepalive_interval_s = 5;
constexpr uint32_t keepalive_count = 1;

enum class server_state : uint8_t { wait_for_network, set_up, serve };

/** What the task keeps between cycles. */
struct server {
    server_state state = server_state::wait_for_network;
    int32_t highest = -1;       /**< highest descriptor handed to select; never lowered */
    bool accept_failed = false; /**< in the previous cycle */
};

/** What one cycle watches: the sockets as they were at its start. */
struct watched {
    int32_t listening = -1;
    int32_t clients[lan_client_max] = {};
    int32_t client_num = 0;
    kelo_fd_set_t read_set{};
    kelo_fd_set_t exception_set{};
    int32_t ready = 0; /**< ready set members that are not handled yet */
};

bool shall_run() {
    return GetThrdSta(lan_pro_cntl.load()->thread) == THRD_STATE_RUNNING && !agent_is_stopping();
}

/** Whether the network in use is the wired one, and that fails to tell its address although it
 * stores one. */
bool address_is_unsettled() {
    uint8_t kind = 0xFF;
    engr_get_wired_wifi_current_net(&kind);
    if (kind != NETWORK_KIND_WIRED) {
        return false;
    }
    gw_addr_t address{};
    const int32_t op_ret = bnw_get_ip(&address);
    LAN_LOG(LOG_LEVEL_TRACE, "cur_net:%i, ret:%i, ip:%s\r\n", kind, op_ret, address.ip);
    return op_ret != 0 && address.ip[0] != '\0';
}

void wait_for_network(server &server) {
    if (!address_is_unsettled() && (engr_get_gw_nw_status() & 0xFFU) >= 1) {
        server.state = server_state::set_up;
        return;
    }
    kelo_hal_system_sleep(retry_pause_ms);
}

void set_up(server &server) {
    LAN_LOG(LOG_LEVEL_TRACE, "Setup TCP Server On Port:%d", server_port);
    const int32_t listening = __setup_tcp_serv_socket(server_port);
    lpc_set_listening_socket(listening);
    if (listening >= 0) {
        server.highest = listening;
        server.state = server_state::serve;
        return;
    }
    LAN_LOG(LOG_LEVEL_FAILURE, "create server socket err");
    kelo_hal_system_sleep(retry_pause_ms);
    server.state = server_state::wait_for_network;
}

void restart(server &server) {
    kelo_hal_system_sleep(retry_pause_ms);
    __lpc_close_all_socket();
    server.state = server_state::wait_for_network;
}

/** Fills the sets for select. Returns false when the listening socket has been closed by another
 * thread. */
bool begin_watch(watched &sockets, bool accepts) {
    sockets.listening = lpc_listening_socket();
    sockets.client_num = __get_lpc_sockets(sockets.clients);
    kelo_hal_net_fd_zero(&sockets.read_set);
    if (sockets.listening < 0) {
        return false;
    }
    for (int32_t i = 0; i < sockets.client_num; ++i) {
        kelo_hal_net_fd_set(sockets.clients[i], &sockets.read_set);
    }
    sockets.exception_set = sockets.read_set;
    kelo_hal_net_fd_set(sockets.listening, &sockets.exception_set);
    if (accepts) {
        kelo_hal_net_fd_set(sockets.listening, &sockets.read_set);
    }
    return true;
}

void mark_exceptional_clients(watched &sockets) {
    for (int32_t i = 0; i < sockets.client_num; ++i) {
        const int32_t client = sockets.clients[i];
        if (kelo_hal_net_fd_isset(client, &sockets.exception_set) == 1) {
            LAN_LOG(LOG_LEVEL_TRACE, "socket fault:%d errno:%d", client, kelo_hal_net_get_errno());
            __lpc_set_socket_fault(client);
            --sockets.ready;
        }
    }
}

void configure_client(int32_t client) {
    if (kelo_hal_net_set_keepalive(client, true, keepalive_idle_s, keepalive_interval_s,
                                   keepalive_count) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "can't set keepalive");
    }
    kelo_hal_net_set_reuse(client);
    kelo_hal_net_set_block(client, false);
}

/** Accepts a connection. Returns false when the cycle ends. */
bool accept_client(server &server, const watched &sockets, uint32_t now) {
    uint32_t peer_address = 0;
    const int32_t client = kelo_hal_net_accept(sockets.listening, &peer_address, nullptr);
    const int system_error = errno;
    if (client <= 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "net_accept client socket failed %d (errno: %d).errno:%d",
                client, kelo_hal_net_get_errno(), system_error);
        server.accept_failed = true;
        return false;
    }
    if (__get_lpc_socket_num() >= lan_client_max) {
        LAN_LOG(LOG_LEVEL_FAILURE, "out of client limit:0x%x", static_cast<unsigned>(peer_address));
        kelo_hal_net_close(client);
        return false;
    }
    if (client > server.highest) {
        server.highest = client;
    }
    configure_client(client);
    __lpc_add_socket(client, now);
    LAN_LOG(LOG_LEVEL_TRACE, "new client connect. nums:%d cfd:%d ip:0x%x", __get_lpc_socket_num(),
            client, static_cast<unsigned>(peer_address));
    return true;
}

void read_from_ready_clients(const watched &sockets, uint32_t now) {
    for (int32_t slot = 0; slot < sockets.client_num; ++slot) {
        const int32_t client = sockets.clients[slot];
        if (kelo_hal_net_fd_isset(client, &sockets.read_set) != 1) {
            continue;
        }
        const bool is_connected = lpc_socket_at(slot) == client; // not closed by another thread
        if (!is_connected || read_from_client(client, now) == read_outcome::end_cycle) {
            return;
        }
    }
}

void serve_cycle(server &server) {
    const uint32_t now = uni_time_get_posix();
    __check_socket_tm(now);
    watched sockets;
    // A connection that could not be accepted is still waiting: serve the clients for one cycle
    // first.
    const bool accepts = !std::exchange(server.accept_failed, false);
    if (!begin_watch(sockets, accepts)) {
        restart(server);
        return;
    }
    sockets.ready =
        kelo_hal_net_select(server.highest + 1, &sockets.read_set, nullptr, &sockets.exception_set,
                            accepts ? select_wait_ms : accept_retry_ms);
    const int system_error = errno;
    if (!shall_run()) {
        return;
    }
    if (sockets.ready < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Select failed: %d,errno:%d", sockets.ready, system_error);
        restart(server);
        return;
    }
    if (sockets.ready == 0) {
        LAN_LOG(LOG_LEVEL_DETAIL, "lan listen select timeout");
        return;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "active socket num:%d", sockets.ready);
    if (kelo_hal_net_fd_isset(sockets.listening, &sockets.exception_set) == 1) {
        restart(server);
        return;
    }
    mark_exceptional_clients(sockets);
    if (sockets.ready == 0) {
        return;
    }
    if (kelo_hal_net_fd_isset(sockets.listening, &sockets.read_set) == 1) {
        --sockets.ready;
        if (!accept_client(server, sockets, now)) {
            return;
        }
    }
    if (sockets.ready > 0) {
        read_from_ready_clients(sockets, now);
    }
}

} // namespace

void __lpc_task_cb(void * /*argument*/) {
    const agent_use use(agent_use::user::worker);
    // Until init has succeeded it may still roll back, which must not wait for a task that serves
    // clients.
    agent_life.wait_for_start(lan_pro_cntl.load()->thread);
    lpc_enter_server_task();
    LAN_LOG(LOG_LEVEL_TRACE, "begint to execute __lpc_task");
    server server;
    while (shall_run()) {
        switch (server.state) {
        case server_state::wait_for_network:
            wait_for_network(server);
            break;
        case server_state::set_up:
            set_up(server);
            break;
        case server_state::serve:
            serve_cycle(server);
            break;
        }
    }
    // A client's frame may end the task while the stop still leaves time to a report.
    lpc_end_foreign_sends();
    __lpc_close_all_socket();
    LAN_LOG(LOG_LEVEL_TRACE, "thread __lpc_task quit");
}
