/* The upgrade's record, watchdog and worker. */
#include "upgrade_state.h"

#include "clients/agent_log.h"
#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "platform/memory.h"
#include "platform/timer.h"

lan_upg_mgr_t *p_lan_upg_mgr = nullptr;
lan_upgrade_info_t up_info{};
std::atomic<int32_t> update_stat{0};

namespace {

/** Watchdog timer of the upgrade; 0 while there is none. */
uint16_t update_timeout = 0;

void end_upgrade() {
    update_stat = 0;
    engr_set_gw_ext_stat(GW_EXT_STAT_UPGRADE_ENDED);
}

void tell_outcome(lan_upg_mgr_t &manager, uint32_t result) {
    if (manager.ug_notify_cb != nullptr) {
        manager.ug_notify_cb(&manager.fw_info, static_cast<int>(result), manager.cb_arg);
    }
}

/** Expiry of the watchdog. Timer context. */
void __update_upgrade_status(uint16_t /*timer_id*/, void * /*argument*/) {
    LAN_LOG(LOG_LEVEL_WARNING, "upgrade timeout!");
    end_upgrade();
    tell_outcome(*p_lan_upg_mgr, 1);
}

/** Body of the upgrade worker. */
void __lan_gw_upgrade_thread_func(void *argument) {
    LAN_LOG(LOG_LEVEL_TRACE, "start lan upgrade thread");
    if (argument == nullptr) {
        return;
    }
    auto &manager = *static_cast<lan_upg_mgr_t *>(argument);
    tell_outcome(manager, manager.notify_result);
    LAN_LOG(LOG_LEVEL_TRACE, "====>%s, upgrade end", __func__);
    DeleteThrdHandle(manager.thrd_hand);
    manager.thrd_hand = nullptr;
    end_upgrade();
    if (IsThisSysTimerRun(update_timeout) == 1) {
        sys_stop_timer(update_timeout);
    }
}

} // namespace

int32_t upgrade_create() {
    if (p_lan_upg_mgr == nullptr) {
        p_lan_upg_mgr = static_cast<lan_upg_mgr_t *>(Malloc(sizeof(lan_upg_mgr_t)));
        if (p_lan_upg_mgr == nullptr) {
            return ENGR_ERR_NO_MEMORY;
        }
        *p_lan_upg_mgr = {};
    }
    if (update_timeout == 0 &&
        sys_add_timer(__update_upgrade_status, nullptr, &update_timeout) != 0) {
        return ENGR_ERR_FAILED;
    }
    return ENGR_OK;
}

void upgrade_release() {
    if (update_stat != 0) {
        return;
    }
    if (update_timeout != 0) {
        sys_delete_timer(update_timeout);
        update_timeout = 0;
    }
    Free(p_lan_upg_mgr);
    p_lan_upg_mgr = nullptr;
}

void __lan_upgrade_nofity(uint32_t result) {
    lan_upg_mgr_t &manager = *p_lan_upg_mgr;
    manager.thrd_param = {3072, 2, "gw_lan_upgrade_func"};
    manager.notify_result = result;
    const int32_t op_ret =
        CreateAndStart(&manager.thrd_hand, nullptr, nullptr, __lan_gw_upgrade_thread_func, &manager,
                       &manager.thrd_param);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "create thread error");
        end_upgrade();
    }
}
