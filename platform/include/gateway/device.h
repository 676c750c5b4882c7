/*
 * Services of devices and data points. Called on the agent's server task unless said otherwise;
 * they may block briefly. Any result other than 0 is a failure, which the agent logs.
 *
 * Data points travel as {"cid": ID, "dps": {"1": true, "2": 210}}: the device, and the values by
 * the number of the data point. The agent looks at no more than the members named below; all others
 * are the service's.
 */
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

/**
 * The gateway's own device, which a query without "cid" means.
 *
 * @return its record, or null when there is none
 */
dev_cntl_t *engr_get_gw_dev_cntl(void);

/**
 * Takes a command that sets data points. Its root is an object with a member "dps": from
 * FRM_TP_CMD and FRM_TP_CMD_2 one for the device "cid", from FRM_GRP_EXEC one for the group "gid".
 * The agent has checked that "dps" is there, and nothing else.
 *
 * @param command  the record is read during the call only
 * @return 0 = accepted: the root is the service's from then on, and the app gets an empty success;
 *     else the root stays the agent's, and the app gets no answer
 */
int32_t engr_sf_send_gw_dev_cmd(sf_cmd_t *command);

/**
 * Writes the data points of a device as the answer to a query of FRM_LOCAL_DP_QUERY. The agent
 * gives no other constants than those below; a service need not look at them.
 *
 * @param device  the device
 * @param dp_id   -1: all data points
 * @param type    1: the form for an app on the LAN
 * @param mode    0
 * @param filter  1
 * @param full    1: with their values, changed or not
 * @return the answer as JSON, NUL-terminated, a block of Malloc that the caller releases with Free;
 *     null when there is nothing to report or no memory: the app is told "json obj data unvalid"
 */
char *engr_sf_pack_local_obj_dp_data(dev_cntl_t *device, int32_t dp_id, int32_t type, int32_t mode,
                                     int32_t filter, int32_t full);

/**
 * Has data points reported to every app, now or later, by engr_lan_dp_sata_report.
 *
 * @param cid    member "cid" of the request, of any JSON type: the device; null when absent. Read
 *     during the call
 * @param dp_id  member "dpId", of any JSON type: which of its data points; null when absent, which
 *     means all of them. Read during the call
 * @return 0 = they will be reported, the app gets an empty success; else it is told "query dp
 *     failed"
 */
int32_t engr_sf_respone_obj_dp_query(struct cJSON *cid, struct cJSON *dp_id);

/**
 * Unbinds a device: takes it out of the list, and reports that by engr_lan_sub_dev_unbind_report.
 *
 * @param device  a record of engr_get_dev_cntl; not used by the agent after the call
 * @return 0 = unbound; the app gets a success in any case
 */
int32_t engr_gw_unbind_device_inner(dev_cntl_t *device);

/**
 * Encrypts a data-point report. The agent sends the output as the payload of FRM_DP_REPORT as it
 * is, so the service has to encrypt it with the key of the TCP channel (engr_lan_get_tcp_key), by
 * AES-128 in ECB mode with PKCS#7 padding (aes128_ecb_encode). Called on the message bus's delivery
 * thread.
 *
 * @param mode                given as 0
 * @param text                the data points, as engr_lan_dp_sata_report got them; NUL-terminated
 * @param flags               given as 0
 * @param pack_arg            that of lan_dp_report_t; its meaning is the service's
 * @param[out] output         on success a block of Malloc that the caller releases with Free
 * @param[out] output_length  on success its size in bytes
 * @return 0 = packed; else the report is dropped
 */
int32_t engr_pack_data_with_cmd(uint8_t mode, const char *text, uint32_t flags, uint32_t pack_arg,
                                uint8_t **output, uint32_t *output_length);

/**
 * Decrypts the payload of FRM_TP_CMD and FRM_TP_CMD_2, which the agent hands over as it came, with
 * the key and in the way of engr_pack_data_with_cmd (aes128_ecb_decode).
 *
 * @param mode        given as 0
 * @param payload     bytes as received
 * @param length      their number
 * @param[out] text   on success the command as JSON, NUL-terminated, a block of Malloc that the
 *     caller releases with Free; else unchanged
 * @return 0 = decrypted; else the app is told "parse data error"
 */
int32_t engr_parse_data_with_cmd(uint8_t mode, const uint8_t *payload, uint32_t length,
                                 char **text);

#ifdef __cplusplus
}
#endif
