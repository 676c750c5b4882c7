/*
 * State of the firmware upgrade: at most one at a time, of the gateway or of a sub-device.
 *
 * Server task, watchdog, worker and the upgrade service's threads meet here. Whatever they change
 * together is guarded by one short lock inside, so that an upgrade has one outcome: whoever claims
 * it first may tell the service. Nobody keeps a pointer to the manager record; each works on a copy
 * of his own.
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

/** Values of "firmwareType". Others are carried and start nothing. */
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
    get_file_cb_t get_file_cb;   /**< takes a chunk; null while no transfer is set up */
    ug_notify_cb_t ug_notify_cb; /**< told the outcome; null while no transfer is set up */
    void *cb_arg;                /**< handed back to both */
    thrd_handle_t thrd_hand;     /**< the worker, in its own copy */
    thrd_param_t thrd_param;     /**< stack, priority and name of the worker */
    lan_fw_info_t fw_info;       /**< the image */
    char cid[DEV_ID_SIZE];       /**< device whose image is transferred */
    uint32_t chunk_size;         /**< most bytes asked for at once */
    uint32_t notify_result;      /**< what the worker tells ug_notify_cb */
    uint32_t start_number;       /**< tells this transfer from those started before and after */
};

/** The current upgrade; all zero at first. */
extern lan_upgrade_info_t up_info;
/** 1 while an upgrade is under way, else 0. Changed by the functions below only. */
extern std::atomic<int32_t> update_stat;
/** Connection that drives the upgrade; keeps its value when the upgrade ends. */
extern std::atomic<int32_t> update_socket;

/** Time that an app has for a chunk. */
inline constexpr uint32_t chunk_watchdog_ms = 40000;
/** Time that the upgrade service has for a complete image. */
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

/** An upgrade begins: update_stat is 1 from now on. Server task. */
void upgrade_begin();
/** Sets the extended state, unless the upgrade has ended meanwhile. Server task. */
void upgrade_set_ext_stat(uint8_t ext_stat);
/** Ends the upgrade, if one is under way, without telling the service: update_stat 0, watchdog
 * disarmed, no transfer set up. Sets the extended state in any case. Any thread. */
void upgrade_end();

/** As upgrade_end, and ends a transfer without an upgrade, too. Any thread. */
void upgrade_end_with_transfer();

/** Sets up a transfer: replaces the manager record and arms the watchdog. Any thread. @return 0; -1
 * there is no record, or the outcome of the upgrade under way is decided already */
[[nodiscard]] int32_t upgrade_set_up_transfer(const lan_upg_mgr_t &manager);

/** What becomes of a chunk frame. */
enum class chunk_admission : uint8_t {
    admitted,    /**< it belongs to the transfer under way; the watchdog is disarmed */
    no_transfer, /**< no transfer is set up, or no upgrade is under way */
    too_late,    /**< the outcome is decided, only the worker has not ended yet */
};
/** Receives a chunk frame. Server task. @param[out] copy  of the manager record, when admitted */
[[nodiscard]] chunk_admission upgrade_admit_chunk(lan_upg_mgr_t &copy);

/** Claims the right to tell the service the outcome. Any thread. @param[out] manager  copy of the
 * record @return false when somebody has it already */
[[nodiscard]] bool upgrade_claim_outcome(lan_upg_mgr_t &manager);
/** The same for one transfer. @param manager  its copy of the record @return false also when
 * another transfer has replaced it */
[[nodiscard]] bool upgrade_claim_outcome_of(const lan_upg_mgr_t &manager);
/** Tells the service, if there is one to tell. @param manager  a copy of the record, whose outcome
 * has been claimed */
void upgrade_tell_outcome(lan_upg_mgr_t &manager, uint32_t result);

/** Arms the watchdog, unless the upgrade has ended meanwhile. Any thread. */
void upgrade_arm_watchdog(uint32_t timeout_ms);
/** Disarms the watchdog. Any thread. */
void upgrade_disarm_watchdog();

/** Number of the current upgrade. */
[[nodiscard]] uint32_t upgrade_number();
/** As upgrade_end, for the upgrade of that number only. */
void upgrade_end_number(uint32_t number);
