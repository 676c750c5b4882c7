/* Phases of upgrade and transfer, the watchdog, and which thread reports the outcome. */
#include "upgrade_state.h"

#include "base/agent_log.h"
#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "platform/clock.h"
#include "platform/critical_section.h"
#include "platform/timer.h"

#include <utility>

lan_upgrade_info_t up_info{};
std::atomic<int32_t> update_stat{};
std::atomic<int32_t> update_socket{};

namespace {

using platform::heap_block;
using platform::held_critical_section;

/** See the table in the header. */
enum class phase : uint8_t { idle, offered, receiving, reporting, transfer_only };

// All of these are guarded by the critical section.
phase current = phase::idle;
lan_upg_mgr_t *p_lan_upg_mgr = nullptr;
uint16_t update_timeout = 0;    // watchdog timer, 0 while there is none
bool is_watchdog_armed = false; // false: an expiry that still arrives was disarmed
bool is_expiring = false;       // the expiry reports the outcome to the service, or is about to
bool is_release_wanted = false; // the agent was stopped; release at the end of the upgrade
uint32_t upgrade_number = 0;    // of the current upgrade
uint32_t transfer_number = 0;   // of the current transfer; changes when it is over
/** More than there are threads that may end something at once; each waits for its own. */
constexpr uint32_t ext_stats_due_max = 8;
uint8_t ext_stats_due[ext_stats_due_max]; // extended states that the gateway is to have, in turn
uint32_t ext_stats_wanted = 0;            // how many there were
uint32_t ext_stats_given = 0;             // how many of them the gateway has had
bool is_publishing = false;               // a thread gives it one

// Everything down to end() is called inside the critical section.

void want_ext_stat(uint8_t ext_stat) {
    ext_stats_due[ext_stats_wanted % ext_stats_due_max] = ext_stat;
    ++ext_stats_wanted;
}

void enter(phase next) {
    current = next;
    update_stat = next == phase::idle || next == phase::transfer_only ? 0 : 1;
}

bool is_transfer_open() {
    return current == phase::receiving || current == phase::transfer_only;
}

lan_upg_mgr_t copy_of_record() {
    lan_upg_mgr_t copy = p_lan_upg_mgr != nullptr ? *p_lan_upg_mgr : lan_upg_mgr_t{};
    copy.transfer_number = transfer_number;
    copy.upgrade_number = upgrade_number;
    return copy;
}

void stop_watchdog() {
    is_watchdog_armed = false;
    if (IsThisSysTimerRun(update_timeout) == 1) {
        sys_stop_timer(update_timeout);
    }
}

void start_watchdog(uint32_t timeout_ms) {
    is_watchdog_armed = sys_start_timer(update_timeout, timeout_ms, SYS_TIMER_ONE_SHOT) == 0;
}

/** A transfer that is over leaves no callback behind, since what they belong to may be gone, and
 * copies of its record are out of date. */
void forget_transfer() {
    stop_watchdog();
    ++transfer_number;
    if (p_lan_upg_mgr != nullptr) {
        *p_lan_upg_mgr = {};
    }
}

/** What an end does to a transfer whose outcome is open. */
enum class open_transfer : uint8_t { stays, ends };

/** Ends an upgrade, whatever the reason. */
void end(open_transfer transfer) {
    if (transfer == open_transfer::stays && is_transfer_open()) {
        enter(phase::transfer_only);
    } else {
        forget_transfer();
        enter(phase::idle);
    }
    want_ext_stat(GW_EXT_STAT_UPGRADE_ENDED);
}

/** What a thread does that waits until the gateway has had an extended state. */
enum class publishing : uint8_t { done, mine, of_another };

publishing begin_publishing(uint32_t until, uint8_t &ext_stat) {
    const held_critical_section hold;
    if (static_cast<int32_t>(until - ext_stats_given) <= 0) {
        return publishing::done;
    }
    if (is_publishing) {
        return publishing::of_another;
    }
    is_publishing = true;
    ext_stat = ext_stats_due[ext_stats_given % ext_stats_due_max];
    return publishing::mine;
}

void end_publishing() {
    const held_critical_section hold;
    is_publishing = false;
    ++ext_stats_given;
}

/** Gives the gateway its extended states one after the other, outside the critical section, and
 * returns when it has had so many: what the caller does next comes after its own. */
void publish_ext_stats(uint32_t until) {
    while (true) {
        uint8_t ext_stat = 0;
        switch (begin_publishing(until, ext_stat)) {
        case publishing::done:
            return;
        case publishing::mine:
            engr_set_gw_ext_stat(ext_stat);
            end_publishing();
            break;
        case publishing::of_another:
            kelo_hal_system_delay(1);
            break;
        }
    }
}

/** Releases record and watchdog unless they are in use; with only_if_wanted, only after a stop. */
void release(bool only_if_wanted) {
    heap_block<lan_upg_mgr_t> record;
    uint16_t timer_id = 0;
    {
        const held_critical_section hold;
        if (only_if_wanted && !is_release_wanted) {
            return;
        }
        is_release_wanted = update_stat == 1 || is_watchdog_armed || is_expiring;
        if (is_release_wanted) {
            return;
        }
        enter(phase::idle);
        record.reset(std::exchange(p_lan_upg_mgr, nullptr));
        timer_id = std::exchange(update_timeout, uint16_t{0});
    }
    if (timer_id != 0) {
        sys_delete_timer(timer_id);
    }
}

/** Holds the critical section for a change, and afterwards does what must not be done inside. */
class state_change {
  public:
    state_change() { kelo_hal_critical_section_enter(); }
    state_change(const state_change &) = delete;
    state_change &operator=(const state_change &) = delete;
    ~state_change() {
        const uint32_t until = ext_stats_wanted;
        kelo_hal_critical_section_leave();
        publish_ext_stats(until);
        release(true);
    }
};

/** What an expiry finds. */
enum class expiry : uint8_t {
    overtaken, /**< the watchdog was disarmed or armed anew meanwhile */
    to_report, /**< the outcome has to be reported to the service */
    decided    /**< another thread reports it, or has done so */
};

/**
 * Ends what the watchdog has expired for.
 *
 * @param[out] manager  the transfer's record
 */
expiry expire(lan_upg_mgr_t &manager) {
    const state_change change;
    if (!is_watchdog_armed || IsThisSysTimerRun(update_timeout) == 1) {
        return expiry::overtaken;
    }
    manager = copy_of_record();
    is_expiring = is_transfer_open();
    end(open_transfer::ends);
    return is_expiring ? expiry::to_report : expiry::decided;
}

/** Expiry of the watchdog. Timer context. */
void __update_upgrade_status(uint16_t /*timer_id*/, void * /*argument*/) {
    lan_upg_mgr_t manager{};
    const expiry found = expire(manager);
    if (found != expiry::overtaken) {
        LAN_LOG(LOG_LEVEL_WARNING, "upgrade timeout!");
    }
    if (found == expiry::to_report) {
        upgrade_tell_outcome(manager, 1);
        const state_change change;
        is_expiring = false;
    }
}

/** Inside the critical section. */
int32_t create_watchdog() {
    if (update_timeout != 0) {
        return ENGR_OK;
    }
    return sys_add_timer(__update_upgrade_status, nullptr, &update_timeout) == 0 ? ENGR_OK
                                                                                 : ENGR_ERR_FAILED;
}

} // namespace

int32_t upgrade_create() {
    auto record = heap_block<lan_upg_mgr_t>::allocate(sizeof(lan_upg_mgr_t));
    if (!record) {
        return ENGR_ERR_NO_MEMORY;
    }
    *record.get() = {};
    const held_critical_section hold;
    is_release_wanted = false;
    if (p_lan_upg_mgr == nullptr) {
        p_lan_upg_mgr = record.release();
    }
    return create_watchdog();
}

void upgrade_release() {
    release(false);
}

void upgrade_begin() {
    const held_critical_section hold;
    enter(current == phase::transfer_only ? phase::receiving : phase::offered);
    ++upgrade_number;
}

void upgrade_set_ext_stat(uint8_t ext_stat) {
    const state_change change;
    if (update_stat == 1) {
        want_ext_stat(ext_stat);
    }
}

void upgrade_refuse() {
    const state_change change;
    end(open_transfer::stays);
}

int32_t upgrade_set_up_transfer(const lan_upg_mgr_t &manager) {
    const held_critical_section hold;
    if (p_lan_upg_mgr == nullptr) {
        return ENGR_ERR_FAILED;
    }
    *p_lan_upg_mgr = manager;
    ++transfer_number;
    enter(update_stat == 1 ? phase::receiving : phase::transfer_only);
    start_watchdog(chunk_watchdog_ms);
    return ENGR_OK;
}

chunk_admission upgrade_admit_chunk(lan_upg_mgr_t &copy) {
    const state_change change;
    if (current == phase::receiving) {
        copy = copy_of_record();
        stop_watchdog();
        return chunk_admission::admitted;
    }
    if (current == phase::reporting) {
        return chunk_admission::too_late;
    }
    end(open_transfer::stays);
    return chunk_admission::stray;
}

bool upgrade_decide(lan_upg_mgr_t &manager) {
    const state_change change;
    if (!is_transfer_open() || manager.transfer_number != transfer_number) {
        return false;
    }
    manager = copy_of_record();
    if (current == phase::receiving) {
        enter(phase::reporting);
    } else {
        forget_transfer();
        enter(phase::idle);
    }
    return true;
}

bool upgrade_decide_lost(lan_upg_mgr_t &manager) {
    const held_critical_section hold;
    if (current != phase::offered && current != phase::receiving) {
        return false;
    }
    manager = copy_of_record();
    enter(phase::reporting);
    return true;
}

void upgrade_tell_outcome(lan_upg_mgr_t &manager, uint32_t result) {
    if (manager.ug_notify_cb != nullptr) {
        manager.ug_notify_cb(&manager.fw_info, static_cast<int>(result), manager.cb_arg);
    }
}

void upgrade_end(const lan_upg_mgr_t &manager) {
    const state_change change;
    const bool another_is_told =
        current == phase::reporting && manager.transfer_number != transfer_number;
    if (update_stat == 1 && manager.upgrade_number == upgrade_number && !another_is_told) {
        end(open_transfer::stays);
    }
}

void upgrade_end_by_version() {
    const state_change change;
    end(open_transfer::ends);
}

void upgrade_arm_watchdog(const lan_upg_mgr_t &manager, uint32_t timeout_ms) {
    const held_critical_section hold;
    if (manager.transfer_number == transfer_number) {
        start_watchdog(timeout_ms);
    }
}

void upgrade_disarm_watchdog() {
    const state_change change;
    stop_watchdog();
}
