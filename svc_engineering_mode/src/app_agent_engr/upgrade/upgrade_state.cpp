/* The upgrade's record and watchdog, and who may tell its outcome. */
#include "upgrade_state.h"

#include "clients/agent_log.h"
#include "clients/short_lock.h"
#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "platform/timer.h"

#include <utility>

lan_upgrade_info_t up_info{};
std::atomic<int32_t> update_stat{0};
std::atomic<int32_t> update_socket{0};

namespace {

using platform::heap_block;

std::atomic_flag gate = ATOMIC_FLAG_INIT;

// All of these are guarded by the gate.
lan_upg_mgr_t *p_lan_upg_mgr = nullptr;
uint16_t update_timeout = 0;     // watchdog timer, 0 while there is none
bool is_watchdog_armed = false;  // tells an expiry that is on its way from one that was disarmed
bool is_expiring = false;        // the expiry tells the service, or is about to
bool is_outcome_claimed = false; // of the upgrade or transfer under way
bool is_release_wanted = false;  // the agent was stopped meanwhile
uint32_t number = 0;             // of the current upgrade
uint32_t start_number = 0;       // of the last start of a transfer

/** With the gate held. */
void stop_watchdog() {
    is_watchdog_armed = false;
    if (IsThisSysTimerRun(update_timeout) == 1) {
        sys_stop_timer(update_timeout);
    }
}

/** With the gate held. */
void start_watchdog(uint32_t timeout_ms) {
    is_watchdog_armed = true;
    // Fails only for a timer that does not exist.
    static_cast<void>(sys_start_timer(update_timeout, timeout_ms, SYS_TIMER_ONE_SHOT));
}

/** With the gate held. A transfer that is over leaves no callback behind: what they belong to may
 * be gone. */
void end_transfer() {
    stop_watchdog();
    is_outcome_claimed = true;
    update_stat = 0;
    if (p_lan_upg_mgr != nullptr) {
        *p_lan_upg_mgr = {};
    }
}

/** With the gate held. */
void end_upgrade() {
    if (update_stat == 1) {
        end_transfer();
    }
    engr_set_gw_ext_stat(GW_EXT_STAT_UPGRADE_ENDED);
}

/** Releases record and watchdog unless they are in use, or nobody wants it. */
void release(bool only_if_wanted) {
    heap_block<lan_upg_mgr_t> record;
    uint16_t timer_id = 0;
    {
        const short_lock hold(gate);
        if (only_if_wanted && !is_release_wanted) {
            return;
        }
        is_release_wanted = update_stat == 1 || is_watchdog_armed || is_expiring;
        if (is_release_wanted) {
            return;
        }
        record.reset(std::exchange(p_lan_upg_mgr, nullptr));
        timer_id = std::exchange(update_timeout, uint16_t{0});
    }
    if (timer_id != 0) {
        sys_delete_timer(timer_id);
    }
}

void release_if_wanted() {
    release(true);
}

/** What an expiry finds. */
enum class expiry : uint8_t {
    overtaken, /**< the watchdog was disarmed or armed anew meanwhile */
    to_tell,   /**< the service is to be told */
    told       /**< the outcome has been claimed before */
};

/** Ends the upgrade whose watchdog has expired. @param[out] manager  its record, when to be told */
expiry expire(lan_upg_mgr_t &manager) {
    const short_lock hold(gate);
    if (!is_watchdog_armed || IsThisSysTimerRun(update_timeout) == 1) {
        return expiry::overtaken;
    }
    manager = *p_lan_upg_mgr;
    is_expiring = !is_outcome_claimed;
    end_transfer();
    engr_set_gw_ext_stat(GW_EXT_STAT_UPGRADE_ENDED);
    return is_expiring ? expiry::to_tell : expiry::told;
}

/** Expiry of the watchdog. Timer context. */
void __update_upgrade_status(uint16_t /*timer_id*/, void * /*argument*/) {
    lan_upg_mgr_t manager{};
    const expiry found = expire(manager);
    if (found != expiry::overtaken) {
        LAN_LOG(LOG_LEVEL_WARNING, "upgrade timeout!");
    }
    if (found == expiry::to_tell) {
        upgrade_tell_outcome(manager, 1);
        const short_lock hold(gate);
        is_expiring = false;
    }
    release_if_wanted();
}

} // namespace

int32_t upgrade_create() {
    const short_lock hold(gate);
    is_release_wanted = false;
    if (p_lan_upg_mgr == nullptr) {
        auto record = heap_block<lan_upg_mgr_t>::allocate(sizeof(lan_upg_mgr_t));
        if (!record) {
            return ENGR_ERR_NO_MEMORY;
        }
        *record.get() = {};
        p_lan_upg_mgr = record.release();
    }
    if (update_timeout == 0 &&
        sys_add_timer(__update_upgrade_status, nullptr, &update_timeout) != 0) {
        return ENGR_ERR_FAILED;
    }
    return ENGR_OK;
}

void upgrade_release() {
    release(false);
}

void upgrade_begin() {
    const short_lock hold(gate);
    update_stat = 1;
    is_outcome_claimed = false;
    ++number;
}

void upgrade_set_ext_stat(uint8_t ext_stat) {
    const short_lock hold(gate);
    if (update_stat == 1) {
        engr_set_gw_ext_stat(ext_stat);
    }
}

void upgrade_end() {
    {
        const short_lock hold(gate);
        end_upgrade();
    }
    release_if_wanted();
}

void upgrade_end_with_transfer() {
    {
        const short_lock hold(gate);
        end_transfer();
        engr_set_gw_ext_stat(GW_EXT_STAT_UPGRADE_ENDED);
    }
    release_if_wanted();
}

void upgrade_end_number(uint32_t of_number) {
    {
        const short_lock hold(gate);
        if (update_stat == 1 && number == of_number) {
            end_upgrade();
        }
    }
    release_if_wanted();
}

int32_t upgrade_set_up_transfer(const lan_upg_mgr_t &manager) {
    const short_lock hold(gate);
    if (p_lan_upg_mgr == nullptr || (update_stat == 1 && is_outcome_claimed)) {
        return ENGR_ERR_FAILED;
    }
    *p_lan_upg_mgr = manager;
    p_lan_upg_mgr->start_number = ++start_number;
    is_outcome_claimed = false;
    start_watchdog(chunk_watchdog_ms);
    return ENGR_OK;
}

chunk_admission upgrade_admit_chunk(lan_upg_mgr_t &copy) {
    const short_lock hold(gate);
    const bool is_set_up = p_lan_upg_mgr != nullptr && p_lan_upg_mgr->get_file_cb != nullptr &&
                           p_lan_upg_mgr->ug_notify_cb != nullptr;
    if (!is_set_up || update_stat != 1) {
        return chunk_admission::no_transfer;
    }
    if (is_outcome_claimed) {
        return chunk_admission::too_late;
    }
    copy = *p_lan_upg_mgr;
    stop_watchdog();
    return chunk_admission::admitted;
}

bool upgrade_claim_outcome(lan_upg_mgr_t &manager) {
    const short_lock hold(gate);
    manager = p_lan_upg_mgr != nullptr ? *p_lan_upg_mgr : lan_upg_mgr_t{};
    return !std::exchange(is_outcome_claimed, true);
}

bool upgrade_claim_outcome_of(const lan_upg_mgr_t &manager) {
    const short_lock hold(gate);
    const bool is_current =
        p_lan_upg_mgr != nullptr && p_lan_upg_mgr->start_number == manager.start_number;
    return is_current && !std::exchange(is_outcome_claimed, true);
}

void upgrade_tell_outcome(lan_upg_mgr_t &manager, uint32_t result) {
    if (manager.ug_notify_cb != nullptr) {
        manager.ug_notify_cb(&manager.fw_info, static_cast<int>(result), manager.cb_arg);
    }
}

void upgrade_arm_watchdog(uint32_t timeout_ms) {
    const short_lock hold(gate);
    if (update_stat == 1) {
        start_watchdog(timeout_ms);
    }
}

void upgrade_disarm_watchdog() {
    {
        const short_lock hold(gate);
        stop_watchdog();
    }
    release_if_wanted();
}

uint32_t upgrade_number() {
    const short_lock hold(gate);
    return number;
}
