/*
 * LAN agent of a Zigbee gateway in engineering mode: everything that a gateway application calls.
 *
 * Threads. Every function here may be called from any thread at any time, also before
 * engr_lan_pro_cntl_init, during and after engr_lan_pro_cntl_exit, and from inside a callback or
 * service call that the agent makes. None of them may be called with the gateway record's dev_mutex
 * or field_mutex held.
 *
 * Callbacks and services must not throw: the agent's code has no exceptions and no unwind tables.
 *
 * Linking. The agent needs a port (the contracts in platform/) and the gateway's services (the
 * contracts in gateway/).
 */
#pragma once

#include "gateway/upgrade.h"

#include <cjson/cJSON.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Result codes of the functions below; other values are those of the platform call or service that
 * failed. */
enum {
    ENGR_OK = 0,               /**< success */
    ENGR_ERR_FAILED = -1,      /**< failed */
    ENGR_ERR_ARGUMENT = -2,    /**< a required argument is absent, or a table is full */
    ENGR_ERR_NO_MEMORY = -3,   /**< no memory, or a callback is missing */
    ENGR_ERR_NO_HANDLER = -4,  /**< no registered handler for a frame type */
    ENGR_ERR_NO_DEVICE = -901, /**< no device of that id */
    ENGR_ERR_SEND_FAILED =
        -909, /**< a write failed or was short; the client is now marked faulty */
    ENGR_ERR_SOCKET_FAULTY =
        -925,                 /**< the client is marked faulty or unknown; nothing was written */
    ENGR_ERR_NO_CLIENT = -940 /**< no app is connected */
};

/** Modes of the agent. Any other value than ENGR_MODE_WECHAT means ENGR_MODE_LAN. */
enum {
    ENGR_MODE_LAN = 0,   /**< TCP server on port 6668, discovery broadcast on UDP port 6667 */
    ENGR_MODE_WECHAT = 1 /**< AirKiss LAN discovery of the platform */
};

/* ---- start and stop ---- */

/**
 * Starts the agent. Starting it while it is started changes nothing. Another thread's start or stop
 * that is under way is waited for; from inside a callback of the agent that is being stopped the
 * call fails at once.
 *
 * @param mode  one of ENGR_MODE_...; fixed until the agent is stopped
 * @return 0 started (or already started); -3 no memory; -1 no watchdog timer, or called from inside
 *     a callback while the agent stops; else the code of the platform call that failed. After a
 *     failure the agent is not started.
 */
int32_t engr_lan_pro_cntl_init(int32_t mode);

/**
 * Stops the agent. Every connection is closed; when the call returns, nothing of the agent runs any
 * more but a firmware upgrade's watchdog and the thread that reports its outcome to the upgrade
 * service. The frame being handled is answered if its client takes the answer at once; no further
 * frame is handled. Waits and sleeps of the agent end at once, whatever the clients do, but calls
 * that the agent has made to the gateway's services are waited for.
 *
 * Called from inside a callback that the agent makes, it waits for the agent's other threads as
 * usual; the rest of the stop happens when that callback has returned. When another thread's stop
 * is under way then, the call returns at once.
 *
 * @return 0
 */
int32_t engr_lan_pro_cntl_exit(void);

/** @return number of connected apps that are not marked faulty, 0 to 10; 0 while the agent is not
 * started */
int32_t engr_lan_pro_cntl_get_valid_connect_cnt(void);

/** Closes every connection and the listening socket. The server listens again after 1.5 s.
 */
void lpc_close_all_socket(void);

/* ---- reports to every connected app ---- */

/** Block of a data-point report; the text follows it directly. */
typedef struct {
    uint32_t pack_arg; /**< handed to engr_pack_data_with_cmd */
    uint32_t reserved; /**< not read */
    char data[];       /**< the data points, NUL-terminated */
} lan_dp_report_t;

/**
 * Sends a report, encrypted, to every connected app, on the calling thread. May wait for a slow
 * app.
 *
 * @param fr_type  frame type
 * @param ret      return code of the frame
 * @param data     payload, len bytes; may be null when len is 0
 * @return 0, whatever happened to single apps; -940 no app is connected
 */
int32_t engr_lan_data_report_cb(uint32_t fr_type, uint32_t ret, const void *data, uint32_t len);

/**
 * Queues a data-point report on the message bus; it is packed and sent from there.
 *
 * @param data  the block, copied
 * @param len   its size, text and NUL included
 * @return 0 queued; -940 no app is connected; -2 data is null or too short to be a block; else the
 *     message bus's code
 */
int32_t engr_lan_dp_sata_report(const lan_dp_report_t *data, uint32_t len);

/**
 * Reports that a sub-device was bound.
 *
 * @return as engr_lan_data_report_cb; -2 when an argument is null
 */
int32_t engr_lan_sub_dev_bind_report(const char *cid, const char *pid);
/**
 * Reports that a sub-device was unbound.
 *
 * @return as engr_lan_data_report_cb; -2 when cid is null
 */
int32_t engr_lan_sub_dev_unbind_report(const char *cid);
/**
 * Reports that the gateway was deactivated.
 *
 * @return as engr_lan_data_report_cb
 */
int32_t engr_lan_gw_unactive_report(void);

/* ---- frame types of other modules ---- */

/**
 * Handles one frame. Called on the server task.
 *
 * @param root  the parsed request; the handler's own when it returns 0 (released with cJSON_Delete,
 *     then or later), else not
 * @return 0 = done: the app gets an empty success; else it is told that the handler failed
 */
typedef int (*lan_protocol_cb_t)(cJSON *root);

/**
 * Registers a handler for a frame type, for as long as the process lives; it goes before any
 * built-in handling. Of several for one type the first gets the frames.
 *
 * @return 0 registered; -2 the table of 20 is full, or handler is null
 */
int32_t engr_lan_protocol_register_cb(int32_t frame_type, lan_protocol_cb_t handler);

/* ---- helpers for other modules ---- */

/**
 * Copies the key that payloads of the TCP channel are encrypted with at the moment: local_key of
 * the gateway record while active_stat is GW_ACTIVATED, else the built-in key. For the services
 * that encrypt or decrypt payloads themselves (engr_pack_data_with_cmd). Takes field_mutex of the
 * gateway record.
 *
 * @param[out] key  room for 16 bytes (AES128_KEY_SIZE)
 * @return 0; -2 key is null
 */
int32_t engr_lan_get_tcp_key(uint8_t *key);

/**
 * Reads an exact number of bytes from a non-blocking socket, giving the peer about 30 s for each
 * further byte. Ends at once when the peer closes, the socket is closed or the calling thread is
 * told to stop.
 *
 * @param socket       a connection
 * @param buffer       room for buffer_size bytes
 * @param buffer_size  its size, at least needed
 * @param needed       bytes wanted
 * @return needed when they were read; -1 buffer is null or too small, or needed is above 2^31 - 1;
 *     -2 they could not all be read
 */
int32_t kelo_net_recv_nd_size(int32_t socket, uint8_t *buffer, uint32_t buffer_size,
                              uint32_t needed);

/* ---- firmware upgrade ---- */

/**
 * Starts the transfer of an image from the app that drives the upgrade. Normally called by the
 * upgrade service, inside or after its acceptance of the offer. The app has 40 s for each chunk.
 *
 * A call while a transfer is open replaces it, and the outcome of the replaced one is never
 * reported. A call without an upgrade under way, or while the outcome of the previous transfer is
 * being reported, starts a transfer as well; it gets chunks only while an app's upgrade is under
 * way, and fails after 40 s without one.
 *
 * @param dev_id        device the image is for, copied; null or empty: the gateway
 * @param firmware      the image, copied; both callbacks are given a copy
 * @param get_file_cb   takes each chunk
 * @param cb_arg        handed back to both callbacks
 * @param ug_notify_cb  called with the outcome of this transfer, at most once: not when it is
 *     replaced, when get_file_cb itself failed, when engr_lan_gw_subdevice_update ended it
 *     first, or when no thread could be started to report it.
 * @param rpt_percent   non-zero: the progress is reported to every app after each chunk
 * @param chunk_size    most bytes asked for at once; 0 means 524288. An agent that is built with a
 *     smaller frame limit asks for no more than what fits into a frame
 * @return 0 started, whether or not the app could be asked; -2 firmware or a callback is null; -1
 *     the agent was never started, or was stopped with no upgrade under way
 */
int32_t lan_gw_start_upgrade(const char *dev_id, const lan_fw_info_t *firmware,
                             get_file_cb_t get_file_cb, void *cb_arg, ug_notify_cb_t ug_notify_cb,
                             uint32_t rpt_percent, uint32_t chunk_size);

/**
 * Reports the version that a sub-device runs: stores it in the device's record, ends the upgrade
 * and the transfer under way without an outcome, and reports the version to every connected app. An
 * outcome that another thread was about to report may still arrive after its return, so what cb_arg
 * points to has to outlive it.
 *
 * @param firmware_type, result, reserved  not read
 * @return as engr_lan_data_report_cb; -2 dev_id or sw_ver is null; -901 no such device, the upgrade
 *     goes on without its watchdog
 */
int32_t engr_lan_gw_subdevice_update(const char *dev_id, const char *sw_ver, uint32_t firmware_type,
                                     uint32_t result, uint32_t reserved);

/**
 * Pushes the progress of the current upgrade to every connected app.
 *
 * @param progress  percent
 * @param cid       id of the device being upgraded; null counts as empty
 * @param reserved  not read
 * @return as engr_lan_data_report_cb
 */
int32_t engr_rpt_upload_upgrade_percent(int32_t progress, const char *cid, uint8_t reserved);

/* ---- network configuration in access-point mode ---- */

/**
 * Takes the credentials that an app sent. Called on the listener's thread; may start and stop the
 * listener.
 *
 * @param ssid, token  never null; valid during the call
 * @param passwd       null for none
 * @return 0 = accepted, the listener ends; else the app may send again
 */
typedef int (*lan_ap_cfg_finish_cb_t)(const char *ssid, const char *passwd, const char *token);

/**
 * Listens for credentials on UDP port 6669. Independent of engr_lan_pro_cntl_init. While the
 * listener is set up, also when it has finished, a further call changes nothing. From inside
 * finish_cb the listener can be stopped and started anew, unless another thread is stopping it.
 *
 * @return 0 started, or set up before; -3 finish_cb is null, or no memory; -1 a socket call failed,
 *     or another thread is stopping the listener that called finish_cb; else the thread's code
 */
int32_t engr_lan_ap_nw_cfg_start(lan_ap_cfg_finish_cb_t finish_cb);

/** Stops the listener; when the call returns, finish_cb does not run any more on another thread.
 * From inside finish_cb it returns at once when another thread is stopping the listener. */
void engr_lan_ap_nw_cfg_stop(void);

/**
 * Reports to apps that the network configuration failed, shuts the access point down and has the
 * station connect with the credentials of the gateway record. Does so once in the life of the
 * process, and only while configuration by access point is under way. Takes some 40 ms.
 *
 * @param desc    text for the app; null counts as empty
 * @param result  number for the app
 */
void engr_lan_ap_nw_cfg_error_report(const char *desc, int32_t result);

#ifdef __cplusplus
}
#endif
