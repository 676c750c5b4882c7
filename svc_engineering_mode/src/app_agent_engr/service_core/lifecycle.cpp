/* Start and stop of the agent. */
#include "base/agent_log.h"
#include "base/agent_use.h"
#include "clients/client_table.h"
#include "engr_lan_agent.h"
#include "platform/airkiss.h"
#include "platform/memory.h"
#include "platform/message_bus.h"
#include "platform/socket.h"
#include "platform/timer.h"
#include "server_task.h"
#include "transport/keys.h"
#include "transport/report.h"
#include "udp/airkiss_discovery.h"
#include "udp/discovery.h"
#include "upgrade/upgrade_state.h"

#include <atomic>
#include <iterator>

namespace {

constexpr uint32_t discovery_period_ms = 5000;
constexpr uint32_t worker_stack_size = 0x800;
constexpr uint32_t worker_priority = 3;

/** A receiver of bus messages, and where its message id is stored. */
struct message_entry {
    std::atomic<uint16_t> *message_id;
    cmmod_callback_t callback;
};

constexpr message_entry msg_tbl[] = {{&mid_lan_dp_report, __lan_dp_report_cb}};

/** What runs on the worker thread. */
struct worker {
    const char *log_text;
    thrd_entry_t entry;
    thrd_param_t thrd_param;
};

constexpr worker lan_worker{"KELO Mode, start KELO thread to listen Lan",
                            __lpc_task_cb,
                            {worker_stack_size, worker_priority, "lpc_task"}};
constexpr worker wechat_worker{"Wechat Mode, start WeChat thread to listen Lan",
                               ak_lan_rev_active_task,
                               {worker_stack_size, worker_priority, "wechat_task"}};

/** The discovery timer's callback. */
void __lan_dev_tm_cb(uint16_t /*timer_id*/, void * /*argument*/) {
    const agent_use use;
    if (!use) {
        return;
    }
    if (lan_pro_cntl.load()->mode == ENGR_MODE_WECHAT) {
        LAN_LOG(LOG_LEVEL_DETAIL, "Send airkiss discover");
        __airkiss_lan_discovery();
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Send udp discover");
    __udp_dev_discovery();
}

void unregister_messages() {
    for (const message_entry &entry : msg_tbl) {
        const uint16_t message_id = *entry.message_id;
        if (message_id != CMMOD_NO_MESSAGE_ID) {
            cmmod_unreg_msgcb(message_id);
            *entry.message_id = CMMOD_NO_MESSAGE_ID;
        }
    }
}

int32_t register_messages() {
    for (const message_entry &entry : msg_tbl) {
        uint16_t message_id = CMMOD_NO_MESSAGE_ID;
        const int32_t op_ret = cmmod_reg_msgcb(entry.callback, &message_id);
        if (op_ret != 0) {
            return op_ret;
        }
        *entry.message_id = message_id;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "cmmod register finish %d", static_cast<int>(std::size(msg_tbl)));
    return 0;
}

void release_mutex(lan_pro_cntl_t &cntl) {
    kelo_hal_mutex_release(cntl.mutex);
    cntl.mutex = nullptr;
}

void delete_timer(const lan_pro_cntl_t &cntl) {
    if (cntl.dev_tm != 0) {
        sys_delete_timer(cntl.dev_tm);
    }
}

void free_record(lan_pro_cntl_t *cntl) {
    lan_pro_cntl.store(nullptr);
    Free(cntl);
}

/** Undoes what a failed start has done so far. The worker thread has not touched the record yet: it
 * waits for the start's end. */
int32_t roll_back(lan_pro_cntl_t *cntl, int32_t op_ret) {
    unregister_messages();
    release_mutex(*cntl);
    DeleteThrdHandle(cntl->thread);
    delete_timer(*cntl);
    free_record(cntl);
    return op_ret;
}

int32_t start_worker(lan_pro_cntl_t &cntl) {
    const worker &chosen = cntl.mode == ENGR_MODE_WECHAT ? wechat_worker : lan_worker;
    LAN_LOG(LOG_LEVEL_TRACE, "%s", chosen.log_text);
    const int32_t op_ret =
        CreateAndStart(&cntl.thread, nullptr, nullptr, chosen.entry, nullptr, &chosen.thrd_param);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "start thread fails %d", op_ret);
    }
    return op_ret;
}

int32_t start_discovery(lan_pro_cntl_t &cntl) {
    const int32_t op_ret = sys_add_timer(__lan_dev_tm_cb, nullptr, &cntl.dev_tm);
    if (op_ret == 0) {
        // Without ticks the agent still serves apps that know its address.
        static_cast<void>(sys_start_timer(cntl.dev_tm, discovery_period_ms, SYS_TIMER_PERIODIC));
    }
    return op_ret;
}

lan_pro_cntl_t *create_record(int32_t mode) {
    auto *cntl = static_cast<lan_pro_cntl_t *>(Malloc(sizeof(lan_pro_cntl_t)));
    if (cntl == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Malloc lan_pro_cntl fails");
        return nullptr;
    }
    *cntl = {};
    cntl->tcp_serv_fd = -1;
    cntl->udp_fd = -1;
    cntl->mode = mode;
    lan_pro_cntl.store(cntl);
    return cntl;
}

int32_t start(int32_t mode) {
    int32_t op_ret = upgrade_create();
    if (op_ret != 0) {
        return op_ret;
    }
    make_key2_encode();
    make_key3_encode();
    lan_pro_cntl_t *cntl = create_record(mode);
    if (cntl == nullptr) {
        return ENGR_ERR_NO_MEMORY;
    }
    op_ret = kelo_hal_mutex_create_init(&cntl->mutex);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "create mutex fails");
        return roll_back(cntl, op_ret);
    }
    op_ret = start_worker(*cntl);
    if (op_ret == 0) {
        op_ret = start_discovery(*cntl);
    }
    if (op_ret == 0) {
        op_ret = register_messages();
    }
    return op_ret == ENGR_OK ? op_ret : roll_back(cntl, op_ret);
}

/** Last step of a stop, when nothing uses the record any more. */
void release_agent() {
    lan_pro_cntl_t *cntl = lan_pro_cntl.load();
    if (cntl->udp_fd >= 0) {
        kelo_hal_net_close(cntl->udp_fd);
    }
    release_mutex(*cntl);
    free_record(cntl);
    upgrade_release();
}

} // namespace

int32_t engr_lan_pro_cntl_init(int32_t mode) {
    switch (agent_life.begin_start()) {
    case transition::needless:
        LAN_LOG(LOG_LEVEL_WARNING, "lan is inited before");
        return ENGR_OK;
    case transition::from_within:
        LAN_LOG(LOG_LEVEL_WARNING,
                "the agent is being stopped, start it when the callback is over");
        return ENGR_ERR_FAILED;
    case transition::claimed:
        break;
    }
    const int32_t op_ret = start(mode);
    if (op_ret != 0) {
        upgrade_release();
    }
    agent_life.end_start(op_ret == 0);
    return op_ret;
}

int32_t engr_lan_pro_cntl_exit(void) {
    switch (agent_life.begin_stop()) {
    case transition::needless:
        LAN_LOG(LOG_LEVEL_FAILURE, "lan_pro_cntl is null");
        return ENGR_OK;
    case transition::from_within:
        return ENGR_OK;
    case transition::claimed:
        break;
    }
    const lan_pro_cntl_t &cntl = *lan_pro_cntl.load();
    lpc_end_foreign_sends();
    unregister_messages();
    DeleteThrdHandle(cntl.thread);
    delete_timer(cntl);
    agent_life.end_stop(release_agent);
    return ENGR_OK;
}

int32_t engr_lan_pro_cntl_get_valid_connect_cnt(void) {
    const agent_use use;
    return use ? __get_lpc_valid_socket_num() : 0;
}
