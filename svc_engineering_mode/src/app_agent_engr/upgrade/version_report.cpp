/* The upgrade service reports the version that a sub-device runs, which ends an upgrade. */
#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "engr_lan_agent.h"
#include "gateway/device.h"
#include "transport/frame_types.h"
#include "upgrade_state.h"

#include <strings.h>

namespace {

using platform::held_mutex;

constexpr uint32_t version_report_size = 128;

/** Stores a device's version in its record. Returns false when there is no such device. */
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
    upgrade_end_by_version();
    return engr_lan_data_report_cb(FRM_SUBDEVICE_UPDATE_RPT, 0, text->text(), text->length());
}
