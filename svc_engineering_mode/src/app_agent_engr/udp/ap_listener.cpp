/* The access-point configuration: start, stop and listening. */
#include "ap_datagram.h"
#include "base/agent_log.h"
#include "base/marked_thread.h"
#include "base/service_life.h"
#include "engr_lan_agent.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "transport/keys.h"

#include <utility>

namespace {

using platform::heap_block;

constexpr uint16_t ap_config_port = 6669;
constexpr uint32_t receive_error_pause_ms = 1000;
constexpr thrd_param_t listener_thread{0x800, 5, "udp_ap_v3"};

/** The listener. Released by the stop, or by the listener's thread when the stop came from there.
 */
struct lan_ap_nw_cfg_t {
    thrd_handle_t thrd;                 /**< the listener's thread */
    uint8_t recv_buf[ap_datagram_size]; /**< one datagram */
    int32_t sock_fd;                    /**< bound to the port */
    lan_ap_cfg_finish_cb_t finish_cb;   /**< gets the credentials */
    marked_thread thread;               /**< the listener's, while it runs */
    bool is_stopped_from_within;        /**< used by the listener's thread only */
};

constinit service_life listener_life;
/** Used by the thread that carries out a start or stop only. */
lan_ap_nw_cfg_t *lan_ap_nw_cfg = nullptr;

/** Receives and handles datagrams until credentials are accepted or the thread is told to stop. */
void listen(lan_ap_nw_cfg_t &listener) {
    while (GetThrdSta(listener.thrd) == THRD_STATE_RUNNING) {
        const int32_t received = kelo_hal_net_recvfrom(listener.sock_fd, listener.recv_buf,
                                                       ap_datagram_size, nullptr, nullptr);
        if (received <= 0) {
            LAN_LOG(LOG_LEVEL_FAILURE, "udp_ap_v3 recvfrom error:%d", kelo_hal_net_get_errno());
            kelo_hal_system_sleep(receive_error_pause_ms);
            continue;
        }
        if (handle_ap_datagram(listener.recv_buf, static_cast<uint32_t>(received),
                               listener.finish_cb)) {
            return;
        }
    }
}

/** Body of the listener's thread. */
void __udp_ap_v3_task(void *argument) {
    auto &listener = *static_cast<lan_ap_nw_cfg_t *>(argument);
    const service_use use(listener_life, service_use::user::worker);
    listener_life.wait_for_start(listener.thrd);
    listener.thread.mark_caller();
    LAN_LOG(LOG_LEVEL_TRACE, "start udp ap thread");
    make_key1_encode();
    listen(listener);
    LAN_LOG(LOG_LEVEL_TRACE, "End While. Finish AP IN UDP Listen");
    if (listener.is_stopped_from_within) {
        Free(&listener);
        return;
    }
    listener.thread.clear();
}

/** Creates the socket and binds it. Returns 0 or -1; sock_fd holds a socket that was created in
 * both cases. */
int32_t open_socket(int32_t &sock_fd) {
    sock_fd = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    if (sock_fd < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "unw_socket_create udp errno:%d", kelo_hal_net_get_errno());
        return ENGR_ERR_FAILED;
    }
    if (kelo_hal_net_set_reuse(sock_fd) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to set reuse socket errno:%d", kelo_hal_net_get_errno());
        return ENGR_ERR_FAILED;
    }
    if (kelo_hal_net_bind(sock_fd, KELO_ADDRESS_ANY, ap_config_port) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "unw_bind %d errno:%d", ap_config_port,
                kelo_hal_net_get_errno());
        return ENGR_ERR_FAILED;
    }
    if (kelo_hal_net_set_cloexec(sock_fd) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Failed to set cloexec errno:%d", kelo_hal_net_get_errno());
        return ENGR_ERR_FAILED;
    }
    return ENGR_OK;
}

/** Opens the socket and starts the thread. Returns 0, or the code of what failed. */
int32_t set_up(lan_ap_nw_cfg_t &listener) {
    int32_t op_ret = open_socket(listener.sock_fd);
    if (op_ret != 0) {
        return op_ret;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "start thread to listen udp");
    op_ret = CreateAndStart(&listener.thrd, nullptr, nullptr, __udp_ap_v3_task, &listener,
                            &listener_thread);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "start thread fails %d", op_ret);
    }
    return op_ret;
}

/** Closes the socket, which wakes the thread, and ends the thread. Returns false when the calling
 * thread is the listener's own, which then releases the listener itself. */
bool tear_down(lan_ap_nw_cfg_t *listener) {
    const bool is_own_thread = listener->thread.is_caller();
    if (is_own_thread) {
        listener->is_stopped_from_within = true;
    }
    kelo_hal_net_close(listener->sock_fd);
    const int32_t op_ret = DeleteThrdHandle(listener->thrd);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "DeleteThrdHandle error:%d", op_ret);
    } else {
        LAN_LOG(LOG_LEVEL_TRACE, "Delete thread");
    }
    return !is_own_thread;
}

/** Creates a listener. Returns 0, or the code of what failed, with everything released. */
int32_t start_listener(lan_ap_cfg_finish_cb_t finish_cb) {
    auto listener = heap_block<lan_ap_nw_cfg_t>::allocate(sizeof(lan_ap_nw_cfg_t));
    if (!listener) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Malloc lan_ap_nw_cfg Fails");
        return ENGR_ERR_NO_MEMORY;
    }
    *listener.get() = {};
    listener->finish_cb = finish_cb;
    const int32_t op_ret = set_up(*listener.get());
    if (op_ret != 0) {
        if (listener->sock_fd >= 0) {
            kelo_hal_net_close(listener->sock_fd);
        }
        return op_ret;
    }
    lan_ap_nw_cfg = listener.release();
    return ENGR_OK;
}

} // namespace

int32_t engr_lan_ap_nw_cfg_start(lan_ap_cfg_finish_cb_t finish_cb) {
    LAN_LOG(LOG_LEVEL_DETAIL, "start");
    if (finish_cb == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "finish_cb is NULL");
        return ENGR_ERR_NO_MEMORY;
    }
    switch (listener_life.begin_start()) {
    case transition::needless:
        LAN_LOG(LOG_LEVEL_WARNING, "ap cfg is inited before");
        return ENGR_OK;
    case transition::from_within:
        LAN_LOG(LOG_LEVEL_WARNING, "the listener is being stopped, start it when it has ended");
        return ENGR_ERR_FAILED;
    case transition::claimed:
        break;
    }
    const int32_t op_ret = start_listener(finish_cb);
    listener_life.end_start(op_ret == ENGR_OK);
    return op_ret;
}

void engr_lan_ap_nw_cfg_stop(void) {
    if (listener_life.begin_stop() != transition::claimed) {
        LAN_LOG(LOG_LEVEL_WARNING, "ap cfg is NULL");
        return;
    }
    lan_ap_nw_cfg_t *listener = std::exchange(lan_ap_nw_cfg, nullptr);
    const bool is_ours_to_release = tear_down(listener);
    listener_life.end_stop(); // waits for the listener's thread
    if (is_ours_to_release) {
        Free(listener);
    }
}
