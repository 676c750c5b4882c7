/* Commands to devices and groups, and queries of their data points. */
#include "base/agent_log.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "gateway/device.h"
#include "gateway/gateway.h"
#include "gateway/group.h"
#include "request_steps.h"

namespace {

using platform::heap_block;

/** Gives a command to the device service; when that accepts it, the app gets a success. */
bool send_to_devices(const lan_request &request, json_request &parsed) {
    const int32_t op_ret = hand_over(parsed, engr_sf_send_gw_dev_cmd);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "send_gw_dev_cmd error:%d", op_ret);
        return false;
    }
    reply_empty(request.source);
    return true;
}

bool process_device_command(const lan_request &request) {
    const uint8_t ext_stat = engr_get_gw_ext_stat();
    if (ext_stat == GW_EXT_STAT_GW_UPGRADING) {
        LAN_LOG(LOG_LEVEL_FAILURE, "gw is upgrade %d.Cannot handle", ext_stat);
        refuse(request.source, "device is upgrading...");
        return false;
    }
    heap_block<char> decoded;
    const int32_t op_ret =
        engr_parse_data_with_cmd(0, request.tmp_out, request.tmp_len, decoded.out());
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Cmd Parse Fails %d.Cannot handle", op_ret);
        refuse(request.source, "parse data error");
        return false;
    }
    json_request parsed(decoded.get());
    if (!parsed) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Not Json Cmd Parse Fails %s", decoded ? decoded.get() : "");
        refuse(request.source, "data format error");
        return false;
    }
    if (parsed.member("dps") == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Json Cmd Lack devId or dps %s", decoded.get());
        refuse(request.source, "data format error");
        return false;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "Rev TP CMD. Send to User");
    return send_to_devices(request, parsed);
}

bool process_group_command(const lan_request &request) {
    json_request parsed(request.text());
    if (!parsed || parsed.member("dps") == nullptr) {
        refuse_unreadable_quoted(request);
        return false;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Grp Cmd. Send to User");
    return send_to_devices(request, parsed);
}

/** The device that a query means: the one named, else the gateway's own. */
dev_cntl_t *find_queried_device(const json_request &parsed) {
    if (parsed.member("cid") == nullptr) {
        return engr_get_gw_dev_cntl();
    }
    const char *cid = parsed.text("cid");
    return cid != nullptr ? engr_get_dev_cntl(cid) : nullptr;
}

/** Unbinds a device after notifying the application. */
void unbind_device(dev_cntl_t &device) {
    if (const auto notify = gateway_field(&gw_cntl_t::dev_delete_notify)) {
        notify(device.dev_id);
    }
    const int32_t op_ret = engr_gw_unbind_device_inner(&device);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "gw_unbind_device_inner err:%d", op_ret);
    }
}

} // namespace

void lan_device_command(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_DETAIL, "Rev TP CMD %d", static_cast<int>(request.source.fr_type));
    if (!process_device_command(request)) {
        LAN_LOG(LOG_LEVEL_FAILURE, "recv cmd and process error");
    }
}

void lan_group_command(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Grp Exec Cmd");
    if (!process_group_command(request)) {
        LAN_LOG(LOG_LEVEL_FAILURE, "recv cmd and process error");
    }
}

void lan_query_device(const lan_request &request) {
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    dev_cntl_t *device = find_queried_device(parsed);
    if (device == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "devId Not Find");
        return refuse(request.source, "devid not found");
    }
    const heap_block<char> text(engr_sf_pack_local_obj_dp_data(device, -1, 1, 0, 1, 1));
    if (!text) {
        LAN_LOG(LOG_LEVEL_TRACE, "nothing to report app query");
        return refuse(request.source, "json obj data unvalid");
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Send Query To App:%s", text.get());
    reply_text(request.source, reply_success, text.get());
}

void lan_query_data_points(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Query Dp Data:%s", request.text());
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    const int32_t op_ret =
        engr_sf_respone_obj_dp_query(parsed.member("cid"), parsed.member("dpId"));
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "sf_respone_obj_dp_query error:%d", op_ret);
        refuse(request.source, "query dp failed");
        LAN_LOG(LOG_LEVEL_FAILURE, "recv query dp error");
        return;
    }
    reply_empty(request.source);
}

void lan_group_operation(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Grp Oper Cmd");
    json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable_quoted(request);
    }
    const int32_t op_ret = hand_over(parsed, engr_sf_send_grp_oper_cmd);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "sf_send_grp_oper_cmd error:%d", op_ret);
        refuse(request.source, "group oper failed");
    }
}

void __lan_del_sub_dev(const lan_request &request) {
    const json_request parsed(request.text());
    const char *cid = parsed ? parsed.text("cid") : nullptr;
    if (cid == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "error result: %s, data: %s", "data format error",
                request.text());
        return refuse(request.source, "data format error");
    }
    LAN_LOG(LOG_LEVEL_FAILURE, "delete cid:%s", cid);
    if (dev_cntl_t *device = engr_get_dev_cntl(cid)) {
        unbind_device(*device);
    } else {
        LAN_LOG(LOG_LEVEL_TRACE, "dev id %s can't be found", cid);
    }
    reply_text(request.source, reply_success, request.text());
}
