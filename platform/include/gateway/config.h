/*
 * Configuration, settings and radio channel of the gateway. Called on the agent's server task; they
 * may block briefly. Any result other than 0 is a failure, which the agent logs.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Directory of the configuration files. The agent appends "cloud.config" or "app.config", and cuts
 * a path of more than 160 bytes.
 *
 * @return its path ending in a separator, living as long as the process; never null
 */
const char *get_config_path(void);

/**
 * Stores a persistent setting. The agent writes one: key "engineer_stat", value "1" with its NUL
 * (length 2), when a cloud configuration has been downloaded.
 *
 * @param key     NUL-terminated
 * @param value   the bytes, read during the call
 * @param length  their number
 * @return 0 = stored; else the app is told "sync config error"
 */
int32_t wd_common_write(const char *key, const uint8_t *value, uint32_t length);

/**
 * Applies the downloaded cloud.config. Called when the gateway record has no sync_config.
 *
 * @return 0 = done; else the app is told "sync config error"
 */
int32_t gw_engineer_sync_default_config(void);

/**
 * Reads a whole file as text. The agent reads app.config.
 *
 * @param path        directory and name, NUL-terminated
 * @param[out] text   on success NUL-terminated, a block of the C library's malloc that the caller
 *     releases with free; else unchanged
 * @return 0 = read; else, or when text stays null, the app is told "read config error"
 */
int32_t gw_read_file(const char *path, char **text);

/**
 * Sets the Zigbee radio channel.
 *
 * @param payload  the request as it came, not parsed yet: {"channel": 11}. NUL-terminated
 * @param length   its bytes without the NUL
 * @return 0 = set; else the app is told "set channel error"
 */
int32_t gw_set_channel(const char *payload, uint32_t length);

/**
 * Returns the Zigbee radio channel.
 *
 * @param[out] channel  the channel on success, 11 to 26
 * @return 0 = returned; else the app is told "get channel error"
 */
int32_t gw_get_channel(int32_t *channel);

#ifdef __cplusplus
}
#endif
