/* The thread that tells the upgrade service the outcome, and stays with it while it installs. */
#include "upgrade_worker.h"

#include "clients/agent_log.h"
#include "upgrade_state.h"

namespace {

using platform::heap_block;

constexpr thrd_param_t worker_thread{3072, 2, "gw_lan_upgrade_func"};

/** What a worker works on. It outlives the transfer and, if need be, the agent's stop. */
struct worker_record {
    lan_upg_mgr_t manager;   /**< as it was when the worker was started */
    uint32_t upgrade_number; /**< the upgrade that ends with the worker */
};

/** Body of the worker. */
void __lan_gw_upgrade_thread_func(void *argument) {
    LAN_LOG(LOG_LEVEL_TRACE, "start lan upgrade thread");
    if (argument == nullptr) {
        return;
    }
    const heap_block<worker_record> record(static_cast<worker_record *>(argument));
    lan_upg_mgr_t &manager = record->manager;
    upgrade_tell_outcome(manager, manager.notify_result);
    LAN_LOG(LOG_LEVEL_TRACE, "====>%s, upgrade end", __func__);
    DeleteThrdHandle(manager.thrd_hand);
    upgrade_end_number(record->upgrade_number);
}

bool start_worker(const lan_upg_mgr_t &claimed, uint32_t result) {
    auto record = heap_block<worker_record>::allocate(sizeof(worker_record));
    if (!record) {
        return false;
    }
    *record.get() = {claimed, upgrade_number()};
    lan_upg_mgr_t &manager = record->manager;
    manager.thrd_param = worker_thread;
    manager.notify_result = result;
    // From a successful start on the record is the worker's.
    worker_record *argument = record.release();
    if (CreateAndStart(&argument->manager.thrd_hand, nullptr, nullptr, __lan_gw_upgrade_thread_func,
                       argument, &worker_thread) != 0) {
        record.reset(argument);
        return false;
    }
    return true;
}

} // namespace

void __lan_upgrade_nofity(const lan_upg_mgr_t &claimed, uint32_t result) {
    if (!start_worker(claimed, result)) {
        LAN_LOG(LOG_LEVEL_FAILURE, "create thread error");
        upgrade_end();
    }
}

void upgrade_lost_connection() {
    lan_upg_mgr_t manager{};
    if (upgrade_claim_outcome(manager)) {
        __lan_upgrade_nofity(manager, 1);
    }
}
