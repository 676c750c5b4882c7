/*
 * The gateway and device records that the gateway service owns and the LAN agent reads.
 *
 * A gateway may keep more fields of its own: in records that begin with these ones, since the agent
 * only ever sees pointers. Texts are NUL-terminated unless stated otherwise; an unknown one is
 * empty.
 */
#pragma once

#include "platform/mutex.h"

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;
struct lan_fw_info;

enum {
    DEV_ID_SIZE = 26,     /**< bytes of a device id with its NUL */
    DEV_SW_VER_SIZE = 28, /**< bytes of a device's software version with its NUL */
    DEV_PID_SIZE = 33,    /**< bytes of a product id with its NUL */
    GW_LOCAL_KEY_SIZE =
        16 /**< bytes of the gateway's LAN key; all of them may be used, there is no NUL */
};

/** Activation states of a gateway; only the last one selects its own LAN key. */
enum { GW_NOT_ACTIVE = 0, GW_DEACTIVATED = 1, GW_ACTIVATED = 2 };

/** States of a device record. The device list shows all but DEV_STATE_FREE, the online lists only
 * DEV_STATE_BOUND. */
enum { DEV_STATE_FREE = 0, DEV_STATE_BOUND = 1, DEV_STATE_LEAVING = 2 };

/** One device. Records are linked into the list of gw_cntl_t, guarded by its dev_mutex. The agent
 * uses a record without the mutex, too, for the length of one request: memory of a record that was
 * taken out of the list stays readable until the agent's calls have returned. */
typedef struct dev_cntl {
    struct dev_cntl *next;        /**< next record, null at the end */
    char dev_id[DEV_ID_SIZE];     /**< device id, "cid" to apps */
    char sw_ver[DEV_SW_VER_SIZE]; /**< software version */
    char pid[DEV_PID_SIZE];       /**< product id */
    uint32_t state;         /**< one of DEV_STATE_...; the device list shows other values, too */
    uint8_t online;         /**< 1 = online */
    uint8_t line_stat_sent; /**< set to 1 by the agent when it has put the device into an online or
                               offline list */
    int8_t excluded;        /**< non-zero: left out of the device list and of the online lists */
} dev_cntl_t;

/* Callbacks of the gateway record. Called on the agent's server task; they may block briefly. Any
 * result other than 0 is a failure, unless stated otherwise. */

/**
 * Offers a gateway firmware; see gateway/upgrade.h.
 *
 * @param firmware  valid during the call
 * @return 0 = the upgrade service takes it; else the app is told "gw_lan_ug_cb error"
 */
typedef int32_t (*gw_lan_ug_cb_t)(struct lan_fw_info *firmware);

/**
 * Offers a sub-device firmware; see gateway/upgrade.h.
 *
 * @param dev_id    the device, as the app names it: it may be unknown
 * @param firmware  valid during the call
 * @return 0 = the upgrade service takes it; else the app is told "dev_lan_ug_cb error"
 */
typedef int32_t (*dev_lan_ug_cb_t)(const char *dev_id, struct lan_fw_info *firmware);

/**
 * Makes a log file ready for upload. The agent reads it, sends it and removes it.
 *
 * @param[out] path  NUL-terminated
 * @param size       usable bytes of path with the NUL, 64
 * @return 0 = ready; else the app is told "read log error"
 */
typedef int32_t (*get_log_path_cb_t)(char *path, uint32_t size);

/**
 * Applies the downloaded cloud.config.
 *
 * @return 0 = done; else the app is told "sync config error"
 */
typedef int32_t (*sync_config_cb_t)(void);

/** Engineering has ended: a cloud configuration was applied, and the app has its answer. May
 * stop the agent. */
typedef void (*engr_end_notify_cb_t)(void);

/**
 * Opens or closes joining, from FRM_PERMIT_JOIN.
 *
 * @param kind    "type" of the request plus 3, modulo 256. The types are defined by app and
 *     service; engr_app sends 0
 * @param enable  false closes: "time" is 0
 * @param time_s  "time" of the request: how long joining stays open, in seconds
 * @return 1 = done; any other value: the app is told "permit join set error"
 */
typedef int32_t (*permit_join_cb_t)(uint8_t kind, bool enable, uint32_t time_s);

/**
 * A sub-device is about to be unbound; engr_gw_unbind_device_inner follows.
 *
 * @param dev_id  the device, valid during the call
 */
typedef void (*dev_delete_notify_cb_t)(const char *dev_id);

/**
 * Executes a scene of a group.
 *
 * @param mode    given as 2; a service need not look at it
 * @param dev_id  given as "FFFFFFFFFFFFFFFF": no single device is meant
 * @param gid     "gid" of the request: the group
 * @param sid     "sid" of the request: the scene
 * @return 0 = executed; else the app is told "scene execute error"
 */
typedef int32_t (*scene_exec_cb_t)(int32_t mode, const char *dev_id, const char *gid,
                                   const char *sid);

/**
 * The gateway control record: one, returned by engr_get_gw_cntl, living as long as the process.
 *
 * Texts, the key, active_stat and the callbacks may change while the agent runs, under field_mutex;
 * the agent copies them under it. A gateway that never changes them may leave field_mutex null.
 * A callback that is null is absent.
 */
typedef struct gw_cntl {
    uint32_t nw_cfg_stat; /**< network-configuration state; 1 = configuration by access point is
                             under way */
    char alt_gw_id[DEV_ID_SIZE];     /**< id announced in discovery while gw_id is empty */
    char wf_ssid[33];                /**< Wi-Fi network that the gateway is configured for */
    char wf_passwd[65];              /**< password of that network */
    uint8_t ak_random;               /**< AirKiss random byte of the last network configuration */
    uint8_t active_stat;             /**< GW_NOT_ACTIVE, GW_DEACTIVATED or GW_ACTIVATED */
    uint8_t ability;                 /**< ability number, announced in discovery */
    char gw_id[DEV_ID_SIZE];         /**< the gateway's own device id */
    char gw_sw_ver[DEV_SW_VER_SIZE]; /**< the gateway's software version */
    char disc_version[33];           /**< version text of the discovery */
    char product_key[129];           /**< product key of the discovery */
    uint8_t local_key[GW_LOCAL_KEY_SIZE]; /**< the gateway's own LAN key, used while activated */
    char ak_ident1[65];                   /**< first AirKiss identity string */
    char ak_ident2[65];                   /**< second AirKiss identity string */
    kelo_mutex_t dev_mutex;               /**< guards dev_list and the records in it */
    uint32_t
        dev_count; /**< records in dev_list; written under dev_mutex, read atomically without it */
    dev_cntl_t *dev_list;           /**< first device record, or null */
    gw_lan_ug_cb_t gw_lan_ug_cb;    /**< called with a gateway firmware */
    dev_lan_ug_cb_t dev_lan_ug_cb;  /**< called with a sub-device firmware */
    get_log_path_cb_t get_log_path; /**< asked for the log file */
    sync_config_cb_t
        sync_config; /**< applies cloud.config; null: gw_engineer_sync_default_config */
    engr_end_notify_cb_t engr_end_notify;     /**< called at the end of engineering */
    permit_join_cb_t permit_join;             /**< opens and closes joining */
    dev_delete_notify_cb_t dev_delete_notify; /**< called before a sub-device is deleted */
    scene_exec_cb_t scene_exec;               /**< executes a scene */
    kelo_mutex_t field_mutex; /**< guards the fields that may change; held for copies only, never
                                 across a call */
} gw_cntl_t;

/** A request for the device, group or scene service. */
typedef struct {
    uint8_t source;     /**< who asks: 0 = the LAN agent */
    struct cJSON *root; /**< the parsed request; its members stand with each service. Passes to the
                           service when, and only when, that returns 0; the service releases it with
                           cJSON_Delete */
} sf_cmd_t;

#ifdef __cplusplus
}
#endif
