/* Configuration, settings and radio channel of the gateway. Called on the agent's server task; they
 * may block shortly. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Directory of the configuration files.
 *
 * @return its path ending in a separator, living as long as the process; never null
 */
const char *get_config_path(void);

/**
 * Stores a persistent setting.
 *
 * @param key  NUL-terminated
 * @param value, length  the bytes
 * @return 0 = stored
 */
int32_t wd_common_write(const char *key, const uint8_t *value, uint32_t length);

/**
 * Takes over downloaded configuration in the default way.
 *
 * @return 0 = done
 */
int32_t gw_engineer_sync_default_config(void);

/**
 * Reads a whole file as text.
 *
 * @param[out] text  on success NUL-terminated, of the C library's malloc, released by the caller
 *     with free
 * @return 0 = read
 */
int32_t gw_read_file(const char *path, char **text);

/**
 * Sets the Zigbee radio channel.
 *
 * @param payload  text of the request, NUL-terminated
 * @return 0 = set
 */
int32_t gw_set_channel(const char *payload, uint32_t length);

/**
 * Tells the Zigbee radio channel.
 *
 * @param[out] channel  stored on success
 * @return 0 = told
 */
int32_t gw_get_channel(int32_t *channel);

#ifdef __cplusplus
}
#endif
