// gateway/device.h and gateway/group.h: devices, their commands and data points, the encryption of
// these, and groups.
#include "gateway/device.h"

#include "calls/calls.h"
#include "calls/requests.h"
#include "gateway/group.h"
#include "store/records.h"
#include "subjects/data_points.h"
#include "subjects/devices.h"
#include "subjects/groups.h"

using namespace gateway;

dev_cntl_t *engr_get_dev_cntl(const char *dev_id) {
    return service(call("engr_get_dev_cntl"), {{"dev_id", dev_id}},
                   [&]() -> dev_cntl_t * { return find_device(dev_id); });
}

dev_cntl_t *engr_get_gw_dev_cntl(void) {
    return service(call("engr_get_gw_dev_cntl"), {}, []() -> dev_cntl_t * { return own_device(); });
}

int32_t engr_sf_send_gw_dev_cmd(sf_cmd_t *command) {
    return service_taking_request(call("engr_sf_send_gw_dev_cmd"), command->root, [&] {
        return guarded([&] { read_request(command->root, command_devices); });
    });
}

char *engr_sf_pack_local_obj_dp_data(dev_cntl_t *device, int32_t dp_id, int32_t type, int32_t mode,
                                     int32_t filter, int32_t full) {
    return service(call("engr_sf_pack_local_obj_dp_data"),
                   {{"dev_id", device},
                    {"dp_id", dp_id},
                    {"type", type},
                    {"mode", mode},
                    {"filter", filter},
                    {"full", full}},
                   [&]() -> char * {
                       char *text = nullptr;
                       guarded([&] {
                           if (device != nullptr) {
                               text =
                                   data_points_text(*static_cast<device_record *>(device), dp_id);
                           }
                       });
                       return text;
                   });
}

int32_t engr_sf_respone_obj_dp_query(cJSON *cid, cJSON *dp_id) {
    return guarded_service(call("engr_sf_respone_obj_dp_query"), {{"cid", cid}, {"dp_id", dp_id}},
                           [&] { answer_query(cid, dp_id); });
}

int32_t engr_gw_unbind_device_inner(dev_cntl_t *device) {
    return guarded_service(call("engr_gw_unbind_device_inner"), {{"dev_id", device}},
                           [&] { unbind_device(static_cast<device_record *>(device)); });
}

int32_t engr_pack_data_with_cmd(uint8_t mode, const char *text, uint32_t flags, uint32_t pack_arg,
                                uint8_t **output, uint32_t *output_length) {
    return service(call("engr_pack_data_with_cmd"),
                   {{"mode", mode}, {"text", text}, {"flags", flags}, {"pack_arg", pack_arg}},
                   [&] { return encrypt_text(text, output, output_length); });
}

int32_t engr_parse_data_with_cmd(uint8_t mode, const uint8_t *payload, uint32_t length,
                                 char **text) {
    return service(call("engr_parse_data_with_cmd"),
                   {{"mode", mode}, {"payload", payload_bytes{payload, length}}},
                   [&] { return decrypt_text(payload, length, text); });
}

int32_t engr_sf_send_grp_oper_cmd(sf_cmd_t *command) {
    return service_taking_request(call("engr_sf_send_grp_oper_cmd"), command->root,
                                  [&] { return operate_group(command->root); });
}
