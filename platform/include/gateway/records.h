/*
 * The gateway and device records that the gateway service owns and the LAN agent reads.
 *
 * A gateway may keep more fields of its own: in records that begin with these ones, since the agent
 * only ever sees pointers. Texts are NUL-terminated unless said otherwise; an unknown one is empty.
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

/** One device. Records hang in the list of gw_cntl_t, guarded by its dev_mutex; a record outlives
 * its place in the list only as long as its owner says. */
typedef struct dev_cntl {
    struct dev_cntl *next;        /**< next record, null at the end */
    char dev_id[DEV_ID_SIZE];     /**< device id, "cid" to apps */
    char sw_ver[DEV_SW_VER_SIZE]; /**< software version */
    char pid[DEV_PID_SIZE];       /**< product id */
    uint32_t state; /**< one of DEV_STATE_...; other values count as bound to nobody, but listed */
    uint8_t online; /**< 1 = online */
    uint8_t line_stat_sent; /**< set to 1 by the agent once the record stood in an online or offline
                               list */
    int8_t excluded;        /**< non-zero: left out of the device list and of the online lists */
} dev_cntl_t;

/**
 * Offers a gateway firmware.
 *
 * @param firmware  valid during the call
 * @return 0 = the upgrade service takes it
 */
typedef int32_t (*gw_lan_ug_cb_t)(struct lan_fw_info *firmware);
/**
 * Offers a sub-device firmware.
 *
 * @param dev_id  the device
 * @return 0 = the upgrade service takes it
 */
typedef int32_t (*dev_lan_ug_cb_t)(const char *dev_id, struct lan_fw_info *firmware);
/**
 * Fills in the path of the finished log file to upload.
 *
 * @param size  usable bytes of path, NUL included. The path must mean nothing to a shell: the file
 *     is removed by a shell command.
 * @return 0 = filled in
 */
typedef int32_t (*get_log_path_cb_t)(char *path, uint32_t size);
/**
 * Takes over newly downloaded configuration.
 *
 * @return 0 = done
 */
typedef int32_t (*sync_config_cb_t)(void);
/** Told that engineering has ended. May stop the agent. */
typedef void (*engr_end_notify_cb_t)(void);
/**
 * Opens or closes joining.
 *
 * @param kind  kind of joining
 * @param enable  false closes
 * @param time_s  for how long
 * @return 1 = done
 */
typedef int32_t (*permit_join_cb_t)(uint8_t kind, bool enable, uint32_t time_s);
/** Told that a sub-device is about to be deleted. */
typedef void (*dev_delete_notify_cb_t)(const char *dev_id);
/**
 * Executes a scene of a group.
 *
 * @return 0 = done
 */
typedef int32_t (*scene_exec_cb_t)(int32_t mode, const char *dev_id, const char *gid,
                                   const char *sid);

/**
 * The gateway control record: one, returned by engr_get_gw_cntl, living as long as the process.
 *
 * Texts, the key, active_stat and the callbacks may change while the agent runs; whoever changes
 * them holds field_mutex, and the agent copies them under it. A gateway that never changes them may
 * leave field_mutex null. A callback that is null is absent.
 */
typedef struct gw_cntl {
    uint32_t nw_cfg_stat; /**< network-configuration state; 1 = configuration by access point is
                             under way */
    char alt_gw_id[DEV_ID_SIZE];     /**< id to be found by while gw_id is empty */
    char wf_ssid[33];                /**< Wi-Fi network that the gateway is configured for */
    char wf_passwd[65];              /**< password of that network */
    uint8_t ak_random;               /**< AirKiss random byte of the last network configuration */
    uint8_t active_stat;             /**< GW_NOT_ACTIVE, GW_DEACTIVATED or GW_ACTIVATED */
    uint8_t ability;                 /**< ability number, told in discovery */
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
    gw_lan_ug_cb_t gw_lan_ug_cb;    /**< offered a gateway firmware */
    dev_lan_ug_cb_t dev_lan_ug_cb;  /**< offered a sub-device firmware */
    get_log_path_cb_t get_log_path; /**< asked for the log file */
    sync_config_cb_t sync_config; /**< takes over configuration; absent: the default way is used */
    engr_end_notify_cb_t engr_end_notify;     /**< told of the end of engineering */
    permit_join_cb_t permit_join;             /**< opens and closes joining */
    dev_delete_notify_cb_t dev_delete_notify; /**< told before a sub-device is deleted */
    scene_exec_cb_t scene_exec;               /**< executes a scene */
    kelo_mutex_t field_mutex; /**< guards the fields that may change; held for copies only, never
                                 across a call */
} gw_cntl_t;

/** A request on its way to the device, group or scene service. */
typedef struct {
    uint8_t source; /**< who asks: 0 = the LAN agent */
    struct cJSON
        *root; /**< the parsed request; passes to the service when, and only when, that returns 0 */
} sf_cmd_t;

#ifdef __cplusplus
}
#endif
