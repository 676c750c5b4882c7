/* What the upgrade service calls: the start of a transfer, and the new version of a sub-device. */
#include "chunk_request.h"
#include "clients/agent_log.h"
#include "clients/agent_use.h"
#include "engr_lan_agent.h"
#include "gateway/device.h"
#include "transport/bounded_text.h"
#include "transport/frame_types.h"
#include "transport/gateway_fields.h"
#include "upgrade_state.h"

#include <algorithm>
#include <strings.h>

namespace {

using platform::held_mutex;

constexpr uint32_t default_chunk_size = 0x80000;
constexpr uint32_t version_report_size = 128;

/** Enters a device's version. @return false when there is no such device */
bool store_version(const char *dev_id, const char *sw_ver) {
    dev_cntl_t *device = engr_get_dev_cntl(dev_id);
    const held_mutex hold(engr_get_gw_cntl()->dev_mutex);
    if (device == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "get devctl fail. devID:%s", dev_id);
        return false;
    }
    if (strcasecmp(device->sw_ver, sw_ver) != 0) {
        LAN_LOG(LOG_LEVEL_TRACE, "ver need update");
        copy_text(device->sw_ver, sw_ver);
    }
    return true;
}

} // namespace

int32_t lan_gw_start_upgrade(const char *dev_id, const lan_fw_info_t *firmware,
                             get_file_cb_t get_file_cb, void *cb_arg, ug_notify_cb_t ug_notify_cb,
                             uint32_t rpt_percent, uint32_t chunk_size) {
    if (firmware == nullptr || get_file_cb == nullptr || ug_notify_cb == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    lan_upg_mgr_t manager{};
    manager.rpt_percent = rpt_percent;
    manager.get_file_cb = get_file_cb;
    manager.ug_notify_cb = ug_notify_cb;
    manager.cb_arg = cb_arg;
    manager.fw_info = *firmware;
    const bool is_named = dev_id != nullptr && dev_id[0] != '\0';
    copy_text(manager.cid, is_named ? dev_id : gateway_text(&gw_cntl_t::gw_id).text());
    manager.chunk_size = chunk_size != 0 ? chunk_size : default_chunk_size;
    const int32_t op_ret = upgrade_set_up_transfer(manager);
    if (op_ret != 0) {
        return op_ret;
    }
    chunk_request first(manager.cid, 0, std::min(manager.chunk_size, firmware->file_size));
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", first.text());
    const agent_use use;
    if (use) {
        // A request that is lost is noticed by the watchdog.
        static_cast<void>(first.send());
    }
    return ENGR_OK;
}

int32_t engr_lan_gw_subdevice_update(const char *dev_id, const char *sw_ver,
                                     uint32_t /*firmware_type*/, uint32_t /*result*/,
                                     uint32_t /*reserved*/) {
    if (dev_id == nullptr || sw_ver == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    upgrade_disarm_watchdog();
    if (!store_version(dev_id, sw_ver)) {
        return ENGR_ERR_NO_DEVICE;
    }
    local_text<version_report_size> text;
    text->add(R"({"firmwareType":%d, "cid":"%s", "softVer":"%s"})", up_info.firmware_type.load(),
              dev_id, sw_ver);
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", text->text());
    upgrade_end_with_transfer();
    return engr_lan_data_report_cb(FRM_SUBDEVICE_UPDATE_RPT, 0, text->text(), text->length());
}
