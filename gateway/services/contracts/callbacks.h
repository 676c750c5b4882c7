// The gateway record's callbacks at their normal work; each stands with its subject.
#pragma once

#include "gateway/upgrade.h"

#include <cstdint>

namespace gateway {

int32_t call_gw_lan_ug_cb(lan_fw_info_t *firmware);
int32_t call_dev_lan_ug_cb(const char *dev_id, lan_fw_info_t *firmware);
int32_t call_get_log_path(char *path, uint32_t size);
int32_t call_sync_config();
void call_engr_end_notify();
int32_t call_permit_join(uint8_t kind, bool enable, uint32_t time_s);
void call_dev_delete_notify(const char *dev_id);
int32_t call_scene_exec(int32_t mode, const char *dev_id, const char *gid, const char *sid);

} // namespace gateway
