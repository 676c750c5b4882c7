// Devices: commands of apps, queries of data points, and set_device_field of operate.h.
#pragma once

#include "store/records.h"
#include "support/json_value.h"

#include <cjson/cJSON.h>

#include <cstdint>

namespace gateway {

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

} // namespace gateway
