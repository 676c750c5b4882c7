/* An app starts a firmware upgrade: the announced image is offered to the upgrade service. */
#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "gateway/gateway.h"
#include "request_steps.h"
#include "upgrade/upgrade_state.h"

#include <cstring>

namespace {

using platform::heap_block;

/** Why an upgrade does not start; null when it does. */
using reason = const char *;

/** Logs a reason and returns it. */
reason because(reason why) {
    LAN_LOG(LOG_LEVEL_FAILURE, "%s", why);
    return why;
}

reason unreadable(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails %s", request.text());
    return "Json Parse Fails";
}

reason offer_gateway_firmware(lan_fw_info_t &firmware) {
    upgrade_set_ext_stat(GW_EXT_STAT_GW_UPGRADING);
    firmware.fw_kind = FW_KIND_GATEWAY;
    const auto offer = gateway_field(&gw_cntl_t::gw_lan_ug_cb);
    if (offer == nullptr) {
        return because("gw_lan_ug_cb func not exist");
    }
    const int32_t op_ret = offer(&firmware);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "gw_lan_ug_cb ret:%d", op_ret);
        return "gw_lan_ug_cb error";
    }
    return nullptr;
}

reason offer_device_firmware(lan_fw_info_t &firmware) {
    upgrade_set_ext_stat(GW_EXT_STAT_DEV_UPGRADING);
    firmware.fw_kind = FW_KIND_SUB_DEVICE;
    if (up_info.cid[0] == '\0') {
        return nullptr;
    }
    const auto offer = gateway_field(&gw_cntl_t::dev_lan_ug_cb);
    if (offer == nullptr) {
        return because("dev_lan_ug_cb func not exist");
    }
    const int32_t op_ret = offer(up_info.cid, &firmware);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "dev_lan_ug_cb ret:%d", op_ret);
        return "dev_lan_ug_cb error";
    }
    return nullptr;
}

reason offer(int32_t firmware_type, lan_fw_info_t &firmware) {
    switch (firmware_type) {
    case FIRMWARE_TYPE_GATEWAY:
        return offer_gateway_firmware(firmware);
    case FIRMWARE_TYPE_SUB_DEVICE:
        return offer_device_firmware(firmware);
    default:
        return nullptr;
    }
}

/** Describes the announced image to the upgrade service. */
void describe_image(lan_fw_info_t &firmware) {
    firmware = {};
    std::memcpy(firmware.sw_ver, up_info.sw_ver, strnlen(up_info.sw_ver, sizeof up_info.sw_ver));
    copy_text(firmware.file_md5, up_info.file_md5);
    firmware.file_size = up_info.file_size;
}

/** Begins the upgrade and offers the image. Returns why it fails, or null. */
reason start(const lan_request &request, const json_request &parsed) {
    upgrade_begin();
    const char *cid = parsed.text("cid");
    if (cid == nullptr || !is_id(cid)) {
        return unreadable(request);
    }
    copy_text(up_info.cid, cid);
    LAN_LOG(LOG_LEVEL_TRACE, "dev_id1:%s,dev_id2:%s", cid, up_info.cid);
    const int *firmware_type = parsed.number("firmwareType");
    if (firmware_type == nullptr) {
        return unreadable(request);
    }
    const auto firmware = heap_block<lan_fw_info_t>::allocate(sizeof(lan_fw_info_t));
    if (!firmware) {
        return because("malloc error");
    }
    reply_empty(request.source);
    describe_image(*firmware.get());
    update_socket = request.source.socket;
    up_info.firmware_type = *firmware_type;
    return offer(*firmware_type, *firmware.get());
}

reason process(const lan_request &request) {
    if (up_info.file_size == 0) {
        return because("file_size is zero");
    }
    const json_request parsed(request.text());
    return parsed ? start(request, parsed) : unreadable(request);
}

void refuse_upgrade(const lan_request &request, reason why) {
    LAN_LOG(LOG_LEVEL_FAILURE, "error result: %s, data: %s", why, request.text());
    refuse(request.source, why);
}

} // namespace

void __lan_dev_upgrade(const lan_request &request) {
    if (update_stat == 1) {
        return refuse_upgrade(request, because("dev is upgrading"));
    }
    if (reason why = process(request)) {
        upgrade_refuse();
        return refuse_upgrade(request, why);
    }
    LAN_LOG(LOG_LEVEL_TRACE, "__lan_dev_upgrade success!");
}
