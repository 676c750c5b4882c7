/*
 * Services of the gateway itself. Called on the agent's server task unless said otherwise; they may
 * block briefly. Any result other than 0 is a failure, which the agent logs.
 */
#pragma once

#include "gateway/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The gateway control record. Any thread; does not block.
 *
 * @return the record, never null, living as long as the process
 */
gw_cntl_t *engr_get_gw_cntl(void);

/** Extended states of the gateway. A gateway may have others, which the agent does not act on. */
enum {
    GW_EXT_STAT_UPGRADE_ENDED = 2, /**< an upgrade has ended */
    GW_EXT_STAT_GW_UPGRADING = 3,  /**< the gateway's own firmware is upgraded: the agent refuses
                                      device commands */
    GW_EXT_STAT_DEV_UPGRADING = 4  /**< a sub-device's firmware is upgraded */
};

/**
 * Extended state. Any thread; does not block.
 *
 * @return what was set last
 */
uint8_t engr_get_gw_ext_stat(void);

/**
 * Sets the extended state. Any thread; must not block nor call the agent.
 *
 * @param state  one of GW_EXT_STAT_...
 */
void engr_set_gw_ext_stat(uint8_t state);

/**
 * Binds the installer's token, the "token" of FRM_TOKEN_BIND.
 *
 * @param token  NUL-terminated, never null, may be empty
 * @return 0 = bound; else the app is told "inner process failed"
 */
int32_t engr_gw_user_token_bind(const char *token);

/**
 * Moves the gateway to another Wi-Fi network, from FRM_WIFI_MODIFY.
 *
 * @param ssid      "ssid" of the request, NUL-terminated, never null
 * @param password  "passwd" of the request, NUL-terminated; null for none
 * @return 0 = done; else the app is told "inner process failed"
 */
int32_t gw_wifi_modify_and_conn(const char *ssid, const char *password);

/** Kinds of reset for engr_gw_unactive; the agent asks for this one only. */
enum { GW_RESET_BY_APP = 2 };

/**
 * Deactivates the gateway. On success the agent sets active_stat to GW_DEACTIVATED, and answers
 * after half a second with the key that holds then.
 *
 * @param reset_type  points to one byte, GW_RESET_BY_APP; read during the call
 * @return 0 = deactivated; else the app is told "gw unactive failed"
 */
int32_t engr_gw_unactive(const uint8_t *reset_type);

/**
 * Adds the sub-devices of FRM_USER_BIND_REQ_ENGR to the device list, and reports each by
 * engr_lan_sub_dev_bind_report.
 *
 * @param payload  the request as it came: {"products": [{"cid": ID, "pid": PID}]}. The agent has
 *     checked that it is JSON with a member "products", of any type. NUL-terminated
 * @param length   its bytes without the NUL
 * @return 0 = added; else the app is told "inner process failed"
 */
int32_t gw_engineer_add_sub_dev_to_list(const char *payload, uint32_t length);

/**
 * Gets the gateway ready to work with the devices just added; called after each successful
 * gw_engineer_add_sub_dev_to_list.
 *
 * @param[out] channel  its radio channel, stored on success; the app is told
 * @return 0 = done; else the app is told "inner process failed"
 */
int32_t engr_gw_cntl_init_local(int32_t *channel);

#ifdef __cplusplus
}
#endif
