/* Services of the gateway itself. Called on the agent's server task unless said otherwise; they may
 * block for a short time. */
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

/** Extended states of the gateway. */
enum {
    GW_EXT_STAT_UPGRADE_ENDED = 2, /**< an upgrade has ended */
    GW_EXT_STAT_GW_UPGRADING =
        3, /**< the gateway's own firmware is being upgraded: device commands are refused */
    GW_EXT_STAT_DEV_UPGRADING = 4 /**< a sub-device's firmware is being upgraded */
};

/** Extended state. Any thread; does not block. */
uint8_t engr_get_gw_ext_stat(void);
/** Sets the extended state. Any thread; must not block nor call the agent. */
void engr_set_gw_ext_stat(uint8_t state);

/**
 * Binds the installer's token.
 *
 * @param token  NUL-terminated, never null
 * @return 0 = bound
 */
int32_t engr_gw_user_token_bind(const char *token);

/**
 * Moves the gateway to another Wi-Fi network.
 *
 * @param ssid  never null
 * @param password  null for none
 * @return 0 = done
 */
int32_t gw_wifi_modify_and_conn(const char *ssid, const char *password);

/** Kinds of reset, as the one-byte record of engr_gw_unactive. */
enum { GW_RESET_BY_APP = 2 };

/**
 * Deactivates the gateway.
 *
 * @param reset_type  one of GW_RESET_..., read during the call
 * @return 0 = deactivated
 */
int32_t engr_gw_unactive(const uint8_t *reset_type);

/**
 * Enters the sub-devices of a binding request.
 *
 * @param payload  its text, NUL-terminated
 * @return 0 = entered
 */
int32_t gw_engineer_add_sub_dev_to_list(const char *payload, uint32_t length);

/**
 * Initialises the gateway after binding.
 *
 * @param[out] channel  its radio channel, stored on success
 * @return 0 = done
 */
int32_t engr_gw_cntl_init_local(int32_t *channel);

#ifdef __cplusplus
}
#endif
