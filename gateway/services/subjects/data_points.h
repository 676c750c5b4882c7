// Data points: commands and queries of apps, changes, which are stored and then reported to every
// app, and the encryption of their JSON text with the key of the TCP channel.
#pragma once

#include "store/records.h"
#include "support/json_value.h"

#include <cjson/cJSON.h>

#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

/** New data points of one device. */
struct data_point_change {
    std::string dev_id;
    std::string dps; /**< an object of data points */
};

/** Where a change of data points comes from. */
enum class change_origin : uint8_t {
    device,       /**< the device reports it */
    command,      /**< an app commands one device */
    many_commands /**< an app commands a group or runs a scene; who is offline is left out */
};

/**
 * Stores changed data points, all or nothing, and reports each change to every app.
 *
 * @return the result of the last report, 0 when there was none
 * @throws refused  a device is unknown or offline, of many all of them are; the product of a device
 * does not take a value; or the store failed
 */
int32_t change_data_points(const std::vector<data_point_change> &changes, change_origin origin);

/**
 * Carries out an app's command to a device or a group.
 *
 * @throws usage_error, refused
 */
void command_devices(const support::json_value &request);
/**
 * Reports the data points that an app asks for.
 *
 * @param cid    id of the device; null: the gateway's own
 * @param dp_id  a number or a list of numbers; null: all
 * @throws usage_error, refused
 */
void answer_query(const cJSON *cid, const cJSON *dp_id);
/**
 * The text that an app gets of a device's data points.
 *
 * @param dp_id  one number; -1: all
 * @return a block of Malloc that the caller frees; null when there are none, the device is offline
 * or memory is short
 */
char *data_points_text(const device_record &device, int32_t dp_id);

/**
 * Encrypts a text.
 *
 * @param output  gets a block of Malloc
 * @return 0; result_argument without a text; else the result of aes128_ecb_encode
 */
int32_t encrypt_text(const char *text, uint8_t **output, uint32_t *output_length);
/**
 * Decrypts a payload that has to be a text.
 *
 * @param text  gets a block of Malloc
 * @return 0; result_argument without a payload; result_not_text when it holds a NUL; else the
 * result of aes128_ecb_decode
 */
int32_t decrypt_text(const uint8_t *payload, uint32_t length, char **text);

} // namespace gateway
