/* The thread that reports the outcome to the upgrade service, and runs its installation. */
#include "upgrade_worker.h"

#include "base/agent_log.h"
#include "upgrade_state.h"

namespace {

using platform::heap_block;

constexpr thrd_param_t worker_thread{3072, 2, "gw_lan_upgrade_func"};

/** Body of the worker. Its argument is a copy of the record of its own, which outlives the transfer
 * and, if need be, the agent's stop. */
void __lan_gw_upgrade_thread_func(void *argument) {
    LAN_LOG(LOG_LEVEL_TRACE, "start lan upgrade thread");
    if (argument == nullptr) {
        return;
    }
    const heap_block<lan_upg_mgr_t> manager(static_cast<lan_upg_mgr_t *>(argument));
    upgrade_tell_outcome(*manager.get(), manager->notify_result);
    LAN_LOG(LOG_LEVEL_TRACE, "====>%s, upgrade end", __func__);
    DeleteThrdHandle(manager->thrd_hand);
    upgrade_end(*manager.get());
}

bool start_worker(const lan_upg_mgr_t &decided, uint32_t result) {
    auto manager = heap_block<lan_upg_mgr_t>::allocate(sizeof(lan_upg_mgr_t));
    if (!manager) {
        return false;
    }
    *manager.get() = decided;
    manager->thrd_param = worker_thread;
    manager->notify_result = result;
    // Once the thread has started, it owns the record, and may release it before the call returns.
    const thrd_param_t thrd_param = manager->thrd_param;
    lan_upg_mgr_t *argument = manager.release();
    if (CreateAndStart(&argument->thrd_hand, nullptr, nullptr, __lan_gw_upgrade_thread_func,
                       argument, &thrd_param) != 0) {
        manager.reset(argument);
        return false;
    }
    return true;
}

} // namespace

void __lan_upgrade_nofity(const lan_upg_mgr_t &decided, uint32_t result) {
    if (!start_worker(decided, result)) {
        LAN_LOG(LOG_LEVEL_FAILURE, "create thread error");
        upgrade_end(decided);
    }
}

void upgrade_lost_connection() {
    lan_upg_mgr_t manager{};
    if (upgrade_decide_lost(manager)) {
        __lan_upgrade_nofity(manager, 1);
    }
}
