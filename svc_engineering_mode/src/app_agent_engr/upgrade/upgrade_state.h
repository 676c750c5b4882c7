/*
 * State of the firmware upgrade: at most one upgrade and one transfer of an image at a time.
 *
 * An upgrade begins when an app starts it and is what update_stat shows. A transfer begins when the
 * upgrade service starts it; normally inside an upgrade, but a service may also start one by itself
 * or replace the one under way. The two together are in one of these phases:
 *
 *     phase          update_stat  transfer  watchdog                    outcome reported
 *     idle           0            none      off
 *     offered        1            none      off
 *     receiving      1            open      on, but while a chunk is    later
 *                                           being taken
 *     reporting      1            decided   on after the last chunk     now, by who decided it
 *     transfer_only  0            open      on                          later
 *
 * What each event makes of each phase, "-" where it cannot happen or does nothing:
 *
 *                          idle           offered    receiving      reporting      transfer_only
 *     upgrade accepted     offered        -          -              -              receiving
 *     start refused        idle           idle       transfer_only  -              transfer_only
 *     transfer started     transfer_only  receiving  receiving      receiving      transfer_only
 *     chunk arrives        idle           idle       receiving      reporting      transfer_only
 *     transfer decided     -              -          reporting      -              idle
 *     connection lost      -              reporting  reporting      -              -
 *     upgrade ends         -              idle       transfer_only  idle           -
 *     watchdog expires     -              -          idle           idle           idle
 *     version reported     idle           idle       idle           idle           idle
 *
 * "Upgrade ends" is the last step of reporting an outcome, by the worker or after a chunk that
 * failed; it ends only the upgrade in which that transfer was decided, and not while the outcome of
 * another transfer of it is being reported. A version report of an unknown device switches the
 * watchdog off and ends nothing. Every end of an upgrade sets the extended state to
 * GW_EXT_STAT_UPGRADE_ENDED.
 *
 * So each transfer has one outcome at most. It has none when it is replaced, when a version report
 * ends it, when the service itself refused a chunk, and when no thread could be started to report
 * it. A transfer that is left in transfer_only is ended by its watchdog.
 *
 * Server task, watchdog, worker and the upgrade service's threads meet here. Whatever they change
 * together is guarded by the critical section, also while the timer is set. The gateway is given
 * the extended state outside of it, by one thread at a time and in order. No thread keeps a pointer
 * to the manager record; each works on its own copy.
 */
#pragma once

#include "gateway/records.h"
#include "gateway/upgrade.h"
#include "platform/owners.h"
#include "platform/thread.h"

#include <atomic>
#include <cstdint>

enum {
    UPGRADE_SW_VER_SIZE = 11,   /**< bytes of an announced version; not NUL-terminated when full */
    UPGRADE_FILE_MD5_SIZE = 33, /**< bytes of an announced MD5 with its NUL */
};

/** Values of "firmwareType". Others are stored and start nothing. */
enum { FIRMWARE_TYPE_GATEWAY = 0, FIRMWARE_TYPE_SUB_DEVICE = 10 };

/** What is known of the current upgrade. Each field keeps its last value, across upgrades too.
 * Written on the server task. */
struct lan_upgrade_info_t {
    char sw_ver[UPGRADE_SW_VER_SIZE];     /**< version of the announced image */
    uint32_t file_size;                   /**< its size in bytes; 0 = none was announced */
    char file_md5[UPGRADE_FILE_MD5_SIZE]; /**< its MD5, 32 hexadecimal characters */
    std::atomic<int32_t> firmware_type;   /**< one of FIRMWARE_TYPE_..., or another value */
    char cid[DEV_ID_SIZE];                /**< device being upgraded */
};

/** The upgrade manager record: what the upgrade service gave when it started the transfer, and the
 * worker. */
struct lan_upg_mgr_t {
    uint32_t rpt_percent;        /**< non-zero: a progress report after each chunk */
    get_file_cb_t get_file_cb;   /**< takes a chunk; null while there is no transfer */
    ug_notify_cb_t ug_notify_cb; /**< gets the outcome; null while there is no transfer */
    void *cb_arg;                /**< handed back to both */
    thrd_handle_t thrd_hand;     /**< the worker, in its own copy */
    thrd_param_t thrd_param;     /**< stack, priority and name of the worker */
    lan_fw_info_t fw_info;       /**< the image */
    char cid[DEV_ID_SIZE];       /**< device whose image is transferred */
    uint32_t chunk_size;         /**< most bytes asked for at once */
    uint32_t notify_result;      /**< the result that the worker reports */
    uint32_t transfer_number;    /**< distinguishes this transfer from earlier and later ones */
    uint32_t upgrade_number;     /**< in a copy: the upgrade under way when the copy was taken */
};

/** The current upgrade; all zero at first. */
extern lan_upgrade_info_t up_info;
/** 1 while an upgrade is under way, else 0. Changed by the functions below only. */
extern std::atomic<int32_t> update_stat;
/** Connection that drives the upgrade; keeps its value when the upgrade ends. */
extern std::atomic<int32_t> update_socket;

/** Time limit of the app for a chunk. */
inline constexpr uint32_t chunk_watchdog_ms = 40000;
/** Time limit of the upgrade service for a complete image. */
inline constexpr uint32_t outcome_watchdog_ms = 120000;

/**
 * Creates the manager record, cleared, and the watchdog timer; keeps those that are there. Called
 * while starting.
 *
 * @return 0; -3 no memory; -1 no timer
 */
[[nodiscard]] int32_t upgrade_create();

/** Releases the manager record and the watchdog; while an upgrade or a transfer is under way, its
 * end does so. Any thread. */
void upgrade_release();

/** An app's upgrade is accepted: update_stat is 1 from now on. Server task. */
void upgrade_begin();
/** Sets the extended state, unless the upgrade has ended meanwhile. Server task. */
void upgrade_set_ext_stat(uint8_t ext_stat);
/** The start of an upgrade is refused: ends the upgrade. An open transfer stays, with its watchdog.
 * Server task. */
void upgrade_refuse();

/**
 * Sets up a transfer: replaces the manager record and arms the watchdog. Any thread.
 *
 * @return 0; -1 there is no record
 */
[[nodiscard]] int32_t upgrade_set_up_transfer(const lan_upg_mgr_t &manager);

/** Whether a chunk frame is accepted. */
enum class chunk_admission : uint8_t {
    admitted, /**< it belongs to the open transfer; the watchdog is disarmed */
    stray,    /**< no transfer is open, or no upgrade is under way; there is none now */
    too_late, /**< the outcome is decided and being reported */
};
/**
 * Receives a chunk frame. Server task.
 *
 * @param[out] copy  of the manager record, when admitted
 */
[[nodiscard]] chunk_admission upgrade_admit_chunk(lan_upg_mgr_t &copy);

/**
 * Decides the transfer that a copy was taken of: the caller, and no other thread, may report its
 * outcome and calls upgrade_end afterwards. Server task.
 *
 * @param[in,out] manager  the copy; taken anew, since a callback may have written into it
 * @return false when the transfer is over, replaced or decided already
 */
[[nodiscard]] bool upgrade_decide(lan_upg_mgr_t &manager);
/**
 * Decides whatever is under way, since a connection was lost: the open transfer, or the upgrade
 * that waits for one. Server task.
 *
 * @param[out] manager  copy of the record; without callbacks when there is no transfer
 * @return false when no upgrade is under way, or its outcome is decided already
 */
[[nodiscard]] bool upgrade_decide_lost(lan_upg_mgr_t &manager);
/**
 * Reports the outcome to the service, if there is one to report.
 *
 * @param manager  a copy of the record of a transfer that the caller has decided
 * @param result   0 the image is complete, 1 failed
 */
void upgrade_tell_outcome(lan_upg_mgr_t &manager, uint32_t result);
/** Ends the upgrade under way when the copy was taken. Another transfer that was started meanwhile
 * stays, with its watchdog. Any thread. */
void upgrade_end(const lan_upg_mgr_t &manager);
/** Ends upgrade and transfer without reporting an outcome. Any thread. */
void upgrade_end_by_version();

/** Arms the watchdog, unless the transfer of the copy is over or was replaced. Any thread. */
void upgrade_arm_watchdog(const lan_upg_mgr_t &manager, uint32_t timeout_ms);
/** Disarms the watchdog. Any thread. */
void upgrade_disarm_watchdog();
