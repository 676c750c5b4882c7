/* State of the firmware upgrade: at most one at a time, of the gateway or of a sub-device. */
#pragma once

#include "gateway/records.h"
#include "gateway/upgrade.h"
#include "platform/thread.h"

#include <atomic>
#include <cstdint>

/** What is known of the current upgrade. Each field keeps its last value, across upgrades too. */
struct lan_upgrade_info_t {
    std::atomic<int32_t>
        firmware_type; /**< 0 gateway, 10 Zigbee sub-device; others start nothing */
};

/** The upgrade manager record: what the upgrade service gave when it started the transfer, and the
 * worker. */
struct lan_upg_mgr_t {
    uint32_t rpt_percent;        /**< non-zero: a progress report after each chunk */
    get_file_cb_t get_file_cb;   /**< takes a chunk; null while no transfer was set up */
    ug_notify_cb_t ug_notify_cb; /**< told the outcome; null while no transfer was set up */
    void *cb_arg;                /**< handed back to both */
    thrd_handle_t thrd_hand;     /**< the worker, null when none */
    thrd_param_t thrd_param;     /**< stack, priority and name of the worker */
    lan_fw_info_t fw_info;       /**< the image */
    char cid[DEV_ID_SIZE];       /**< device whose image is transferred */
    uint32_t chunk_size;         /**< most bytes asked for at once */
    uint32_t notify_result;      /**< what the worker tells ug_notify_cb */
};

/** The record; null before the first start and after a stop without an upgrade under way. */
extern lan_upg_mgr_t *p_lan_upg_mgr;
/** The current upgrade; all zero at first. */
extern lan_upgrade_info_t up_info;
/** 1 while an upgrade is under way, else 0. */
extern std::atomic<int32_t> update_stat;

/**
 * Creates the manager record, cleared, and the watchdog timer; keeps those that an upgrade under
 * way has. Called while starting.
 *
 * @return 0; -3 no memory; -1 no timer
 */
[[nodiscard]] int32_t upgrade_create();

/** Releases the manager record and the watchdog, unless an upgrade is under way. Called when
 * nothing else of the agent runs. */
void upgrade_release();

/** Starts the worker that tells the upgrade service the outcome. @param result  0 image complete, 1
 * failed */
void __lan_upgrade_nofity(uint32_t result);
