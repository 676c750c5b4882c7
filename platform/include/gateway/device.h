/* Services of devices and data points. Called on the agent's server task unless said otherwise;
 * they may block shortly. */
#pragma once

#include "gateway/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Device record by id. Any thread.
 *
 * @param dev_id  never null
 * @return the record, or null when unknown; see dev_cntl_t
 */
dev_cntl_t *engr_get_dev_cntl(const char *dev_id);

/** @return the record of the gateway's own device, or null */
dev_cntl_t *engr_get_gw_dev_cntl(void);

/**
 * Takes a data-point command (for a device or a group).
 *
 * @param command  read during the call
 * @return 0 = accepted, the request in it is the service's from then on
 */
int32_t engr_sf_send_gw_dev_cmd(sf_cmd_t *command);

/**
 * Packs a device's data points for an app.
 *
 * @param device  the device
 * @param dp_id, type, mode, filter, full  given as -1, 1, 0, 1, 1: all data points, whole
 * @return a NUL-terminated JSON text of Malloc, released by the caller with Free; null when there
 *     is nothing to report
 */
char *engr_sf_pack_local_obj_dp_data(dev_cntl_t *device, int32_t dp_id, int32_t type, int32_t mode,
                                     int32_t filter, int32_t full);

/**
 * Answers a data-point query by reports.
 *
 * @param cid, dp_id  members of the request, either may be null; read during the call
 * @return 0 = will be answered
 */
int32_t engr_sf_respone_obj_dp_query(struct cJSON *cid, struct cJSON *dp_id);

/**
 * Unbinds a device.
 *
 * @param device  a record of engr_get_dev_cntl, gone after success
 * @return 0 = unbound
 */
int32_t engr_gw_unbind_device_inner(dev_cntl_t *device);

/**
 * Packs a data-point report for the LAN. Called on the message bus's delivery thread.
 *
 * @param mode, flags          given as 0
 * @param text                 the data points
 * @param pack_arg             from the report block
 * @param[out] output          on success a buffer of Malloc, released by the caller with Free
 * @param[out] output_length   on success its size
 * @return 0 = packed
 */
int32_t engr_pack_data_with_cmd(uint8_t mode, const char *text, uint32_t flags, uint32_t pack_arg,
                                uint8_t **output, uint32_t *output_length);

/**
 * Unpacks a device command of an app.
 *
 * @param mode              given as 0
 * @param payload           bytes as received
 * @param length            their number
 * @param[out] text         on success a NUL-terminated JSON text of Malloc, released by the caller
 *     with Free
 * @return 0 = unpacked
 */
int32_t engr_parse_data_with_cmd(uint8_t mode, const uint8_t *payload, uint32_t length,
                                 char **text);

#ifdef __cplusplus
}
#endif
