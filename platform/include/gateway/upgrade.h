/* What the agent and the gateway's upgrade service exchange. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Kinds of firmware in lan_fw_info_t. */
enum { FW_KIND_SUB_DEVICE = 3, FW_KIND_GATEWAY = 9 };

/** Describes one firmware image. */
typedef struct lan_fw_info {
    uint8_t fw_kind;        /**< FW_KIND_GATEWAY or FW_KIND_SUB_DEVICE */
    uint8_t reserved1[257]; /**< the upgrade service's own; zero when the agent offers the record */
    char sw_ver[14];        /**< version text, NUL-terminated */
    uint32_t file_size;     /**< image size in bytes */
    char file_md5[65];      /**< MD5 of the image, 32 hexadecimal characters, NUL-terminated */
    uint8_t reserved2[7];   /**< the upgrade service's own; zero when the agent offers the record */
} lan_fw_info_t;

/**
 * Takes one chunk of the image. Called on the agent's server task; must check offset and length
 * against the image.
 *
 * @param firmware         the record given to lan_gw_start_upgrade
 * @param total_size       image size
 * @param offset           of the first byte of the chunk
 * @param data             the bytes, valid during the call
 * @param length           their number
 * @param[out] remain_len  number of trailing bytes of the chunk that were not taken and are wanted
 *     again; preset to 0
 * @param cb_arg           the service's own
 * @return 0 = taken; anything else fails the upgrade
 */
typedef int (*get_file_cb_t)(lan_fw_info_t *firmware, uint32_t total_size, uint32_t offset,
                             const uint8_t *data, uint32_t length, uint32_t *remain_len,
                             void *cb_arg);

/**
 * Reports the outcome, on the upgrade worker, the timer context or the server task.
 *
 * @param result  0: the whole image has been received, the upgrade may proceed and is carried out
 *     in this call; 1: the upgrade failed or was abandoned
 * @return not used
 */
typedef int (*ug_notify_cb_t)(lan_fw_info_t *firmware, int result, void *cb_arg);

#ifdef __cplusplus
}
#endif
