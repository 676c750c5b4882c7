/* Commands about scenes: scenes of a group, linkage scenes, scene panels. */
#include "gateway/scene.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "request_steps.h"

namespace {

/** Constant arguments of scene_exec: the mode, and "no single device". */
constexpr int32_t scene_exec_mode = 2;
constexpr const char *scene_exec_any_device = "FFFFFFFFFFFFFFFF";
constexpr uint32_t panel_text_size = 128;

bool process_scene(const lan_request &request, const json_request &parsed) {
    const char *sid = parsed.text("sid");
    const char *gid = parsed.text("gid");
    if (sid == nullptr || gid == nullptr) {
        refuse(request.source, "data format error");
        return false;
    }
    const auto scene_exec = gateway_field(&gw_cntl_t::scene_exec);
    if (scene_exec != nullptr &&
        scene_exec(scene_exec_mode, scene_exec_any_device, gid, sid) != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "scene execute fails");
        refuse(request.source, "scene execute error");
        return false;
    }
    reply_empty(request.source);
    return true;
}

/** Replaces the stored scene set by that of the request. Returns 0, else the set is cleared. */
int32_t replace_scene_set(int32_t total, int32_t modified, const json_request &parsed) {
    LAN_LOG(LOG_LEVEL_TRACE, "modify time not match. reset and download");
    engr_reset_scene_info_to_disk();
    const int32_t op_ret = engr_save_scene_link(total, modified, parsed.root());
    if (op_ret != 0) {
        engr_reset_scene_info_to_disk();
    } else {
        engr_load_scene_info_from_disk();
    }
    return op_ret;
}

/** Carries out a scene-linkage request. Returns why it failed, or null. */
const char *process_scene_linkage(const json_request &parsed) {
    if (!parsed) {
        return "data format error";
    }
    const int *total = parsed.number("totalCount");
    if (total == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "do not have totalCount, can not happen");
        return "do not have totalCount";
    }
    LAN_LOG(LOG_LEVEL_TRACE, "get linkage totalcnt:%d", *total);
    if (*total == 0) {
        engr_scene_linkage_module_reinit();
        engr_reset_scene_info_to_disk();
        return nullptr;
    }
    const int *modified = parsed.number("gmtModified");
    if (modified == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "resp do not have lastGmtModified, can not happen");
        return "do not have lastGmtModified";
    }
    if (engr_check_modify_time_changed(*modified) != 1) {
        LAN_LOG(LOG_LEVEL_TRACE, "scene no changed.");
        return nullptr;
    }
    return replace_scene_set(*total, *modified, parsed) == 0 ? nullptr : "get scene error";
}

/** Answers with the reason why a panel command failed. */
void refuse_panel(const lan_request &request, const char *cid, const char *reason) {
    local_text<panel_text_size> text;
    text->add(R"({"cid":"%s","reason":"%s"})", cid, reason);
    LAN_LOG(LOG_LEVEL_TRACE, "result:%s", text->text());
    refuse(request.source, text->text());
}

} // namespace

void lan_run_scene(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev SCENE CMD. Data:%s", request.text());
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    if (!process_scene(request, parsed)) {
        LAN_LOG(LOG_LEVEL_FAILURE, "recv scene exec error");
    }
}

void __lan_protocol_FRM_COM_SCENE_EXEC(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev FRM_COM_SCENE_EXEC Cmd %s", request.text());
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    const char *scene_id = parsed.text("sceneId");
    if (scene_id == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails, don't find sceneId.");
        return refuse(request.source, "data format error");
    }
    scene_linkage_scene_exe(scene_id);
    reply_empty(request.source);
}

void __lan_set_scene_linkage(const lan_request &request) {
    const json_request parsed(request.text());
    const char *error = process_scene_linkage(parsed);
    if (error != nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "error result: %s", error);
        return refuse(request.source, error);
    }
    reply_empty(request.source);
}

void lan_scene_operation(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Data:%s", request.text());
    json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable_quoted(request);
    }
    const int32_t op_ret = hand_over(parsed, engr_sf_send_scene_oper_cmd);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "sf_send_scene_oper_cmd error:%d", op_ret);
        refuse(request.source, "scene oper failed");
    }
}

void lan_scene_panel(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Data:%s", request.text());
    json_request parsed(request.text());
    const char *cid = parsed ? parsed.text("cid") : nullptr;
    if (cid == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails %s", request.text());
        return refuse_panel(request, "xxxxxx", "Json Parse Fails");
    }
    const int32_t op_ret = hand_over(parsed, engr_sf_send_scene_panel_cmd);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "sf_send_scene_panel_cmd error:%d", op_ret);
        refuse_panel(request, cid, "set panel cmd error");
    }
}
