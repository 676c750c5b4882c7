/* Operations on the client connection table. */
#include "client_table.h"

#include "base/agent_log.h"
#include "base/agent_use.h"
#include "engr_lan_agent.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/socket.h"

namespace {

using platform::held_mutex;

/** A client that is silent for this long is closed. */
constexpr int32_t idle_limit_s = 120;
/** A longer gap means that the clock was set, not that the client was silent; it stays connected.
 * */
constexpr int32_t clock_jump_s = 30 * 24 * 3600;

/** Time that a stop leaves to sends that are under way. */
constexpr uint32_t send_grace_ms = 20;

constexpr int32_t no_slot = -1;

int32_t slots_in_use(const lan_pro_cntl_t &cntl) {
    const held_mutex hold(cntl.mutex);
    return cntl.socket_num;
}

/** The mutex is held. */
int32_t find_slot(const lan_pro_cntl_t &cntl, int32_t socket) {
    for (int32_t slot = 0; slot < cntl.socket_num; ++slot) {
        if (cntl.sockets[slot] == socket) {
            return slot;
        }
    }
    return no_slot;
}

bool is_due_for_close(const lan_pro_cntl_t &cntl, int32_t slot, uint32_t now) {
    const auto idle_s = static_cast<int32_t>(now - cntl.socket_time[slot]);
    const bool faulty = cntl.socket_fault[slot] != 0;
    return faulty || (idle_s >= idle_limit_s && idle_s < clock_jump_s);
}

/** The mutex is held. */
void remove_slot(lan_pro_cntl_t &cntl, int32_t slot) {
    for (int32_t later = slot + 1; later < cntl.socket_num; ++later) {
        cntl.sockets[later - 1] = cntl.sockets[later];
        cntl.socket_time[later - 1] = cntl.socket_time[later];
        cntl.socket_fault[later - 1] = cntl.socket_fault[later];
        cntl.foreign_sends[later - 1] = cntl.foreign_sends[later];
    }
    --cntl.socket_num;
}

} // namespace

void __lpc_add_socket(int32_t socket, uint32_t time) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const int32_t socket_num = slots_in_use(cntl);
    if (socket_num >= lan_client_max || socket < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "add socket err %d %d", socket_num, socket);
        return;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "add socket %d", socket);
    const held_mutex hold(cntl.mutex);
    const int32_t slot = cntl.socket_num;
    cntl.sockets[slot] = socket;
    cntl.socket_fault[slot] = 0;
    cntl.socket_time[slot] = time;
    cntl.foreign_sends[slot] = 0;
    ++cntl.socket_num;
}

int32_t __get_lpc_socket_num() {
    const lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl == nullptr) {
        return 0;
    }
    const int32_t socket_num = slots_in_use(*cntl);
    LAN_LOG(LOG_LEVEL_DETAIL, "Curr Socket Num:%d", socket_num);
    return socket_num;
}

int32_t __get_lpc_sockets(int32_t (&sockets)[lan_client_max]) {
    const lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl == nullptr) {
        return 0;
    }
    const held_mutex hold(cntl->mutex);
    for (int32_t slot = 0; slot < cntl->socket_num; ++slot) {
        sockets[slot] = cntl->sockets[slot];
    }
    return cntl->socket_num;
}

void __up_socket_time(int32_t socket, uint32_t time) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const int32_t socket_num = slots_in_use(cntl);
    if (socket_num > lan_client_max || socket < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "up_socket_time err %d %d", socket_num, socket);
        return;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "up_socket_time %d", socket);
    const held_mutex hold(cntl.mutex);
    const int32_t slot = find_slot(cntl, socket);
    if (slot != no_slot) {
        cntl.socket_time[slot] = time;
    }
}

void __lpc_set_socket_fault(int32_t socket) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const int32_t socket_num = slots_in_use(cntl);
    if (socket_num == 0 || socket < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "set socket fault err %d %d", socket_num, socket);
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "set socket fault %d", socket);
    const held_mutex hold(cntl.mutex);
    const int32_t slot = find_slot(cntl, socket);
    if (slot != no_slot) {
        LAN_LOG(LOG_LEVEL_FAULTY_CLIENT, "find error socket %d", socket);
        cntl.socket_fault[slot] = 1;
    }
}

int32_t __get_lpc_sockets_fault(int32_t socket) {
    const lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    int32_t slot = no_slot;
    int32_t fault = 1;
    {
        const held_mutex hold(cntl.mutex);
        slot = find_slot(cntl, socket);
        if (slot != no_slot) {
            fault = cntl.socket_fault[slot];
        }
    }
    if (slot == no_slot) {
        LAN_LOG(LOG_LEVEL_DETAIL, "no fd find %d, set falut", socket);
    } else {
        LAN_LOG(LOG_LEVEL_DETAIL, "fd %d status:%d", socket, fault);
    }
    return fault;
}

int32_t __get_lpc_valid_socket_num() {
    const lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl == nullptr) {
        return 0;
    }
    int32_t socket_num = 0;
    int32_t faulty = 0;
    {
        const held_mutex hold(cntl->mutex);
        socket_num = cntl->socket_num;
        for (int32_t slot = 0; slot < socket_num; ++slot) {
            faulty += cntl->socket_fault[slot] == 1 ? 1 : 0;
        }
    }
    if (socket_num == 0) {
        return 0;
    }
    if (faulty >= socket_num) {
        LAN_LOG(LOG_LEVEL_DETAIL, "socket all falult:%d ", socket_num);
        return 0;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "socketNum:%d ", socket_num - faulty);
    return socket_num - faulty;
}

void __check_socket_tm(uint32_t now) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    int32_t to_close[lan_client_max];
    int32_t close_num = 0;
    {
        const held_mutex hold(cntl.mutex);
        if (cntl.socket_num == 0) {
            return;
        }
        for (int32_t slot = 0; slot < cntl.socket_num; ++slot) {
            if (is_due_for_close(cntl, slot, now)) {
                cntl.socket_fault[slot] = 0;
                to_close[close_num++] = cntl.sockets[slot];
            }
        }
    }
    if (close_num == 0) {
        LAN_LOG(LOG_LEVEL_DETAIL, "no socket to close");
        return;
    }
    for (int32_t i = 0; i < close_num; ++i) {
        LAN_LOG(LOG_LEVEL_DETAIL, "time out close socket:%d", to_close[i]);
        __lpc_close_socket(to_close[i]);
    }
}

void __lpc_close_socket(int32_t socket) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const int32_t socket_num = slots_in_use(cntl);
    if (socket_num == 0 || socket < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "close socket err %d %d", socket_num, socket);
        return;
    }
    const held_mutex hold(cntl.mutex);
    const int32_t slot = find_slot(cntl, socket);
    if (slot == no_slot) {
        return;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "close socket %d", socket);
    kelo_hal_net_close(socket);
    cntl.sockets[slot] = -1;
    cntl.socket_fault[slot] = 0;
    remove_slot(cntl, slot);
}

void __lpc_close_all_socket() {
    lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl == nullptr) {
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "close all socket");
    const held_mutex hold(cntl->mutex);
    if (cntl->tcp_serv_fd >= 0) {
        kelo_hal_net_close(cntl->tcp_serv_fd);
    }
    cntl->tcp_serv_fd = -1;
    for (int32_t slot = 0; slot < cntl->socket_num; ++slot) {
        if (cntl->sockets[slot] != -1) {
            kelo_hal_net_close(cntl->sockets[slot]);
        }
        cntl->sockets[slot] = -1;
        cntl->socket_fault[slot] = 0;
    }
    cntl->socket_num = 0;
}

int32_t lpc_socket_at(int32_t slot) {
    const lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const held_mutex hold(cntl.mutex);
    return slot < cntl.socket_num ? cntl.sockets[slot] : -1;
}

int32_t lpc_listening_socket() {
    const lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const held_mutex hold(cntl.mutex);
    return cntl.tcp_serv_fd;
}

void lpc_set_listening_socket(int32_t socket) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const held_mutex hold(cntl.mutex);
    cntl.tcp_serv_fd = socket;
}

void lpc_enter_server_task() {
    lan_pro_cntl.load()->server_thread.mark_caller();
}

lpc_send::lpc_send(int32_t socket) : socket_(socket) {
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    is_foreign_ = !cntl.server_thread.is_caller();
    if (!is_foreign_) {
        return;
    }
    const held_mutex hold(cntl.mutex);
    const int32_t slot = find_slot(cntl, socket);
    if (slot != no_slot) {
        ++cntl.foreign_sends[slot];
    }
}

lpc_send::~lpc_send() {
    if (!is_foreign_) {
        return;
    }
    lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const held_mutex hold(cntl.mutex);
    const int32_t slot = find_slot(cntl, socket_);
    if (slot != no_slot) {
        --cntl.foreign_sends[slot];
    }
}

bool lpc_send::may_begin() const {
    return !is_foreign_ || !agent_is_stopping();
}

namespace {

/** Whether sends of other threads are under way; can end these. */
bool has_foreign_sends(bool end_them) {
    const lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    const held_mutex hold(cntl.mutex);
    bool found = false;
    for (int32_t slot = 0; slot < cntl.socket_num; ++slot) {
        if (cntl.foreign_sends[slot] != 0) {
            found = true;
            if (end_them) {
                kelo_hal_net_shutdown(cntl.sockets[slot]);
            }
        }
    }
    return found;
}

} // namespace

void lpc_end_foreign_sends() {
    for (uint32_t waited_ms = 0; has_foreign_sends(waited_ms >= send_grace_ms); ++waited_ms) {
        if (waited_ms >= send_grace_ms) {
            return;
        }
        kelo_hal_system_delay(1);
    }
}

void lpc_close_all_socket() {
    const agent_use use;
    if (use) {
        __lpc_close_all_socket();
    }
}
