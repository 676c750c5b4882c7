/* Announcing a firmware image: of the gateway, or of any device. */
#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "gateway/device.h"
#include "request_steps.h"
#include "upgrade/upgrade_state.h"

#include <cstring>

namespace {

using platform::held_mutex;

constexpr uint32_t answer_size = 256;

/** Whether the request has every member that describes an image. */
bool describes_image(const json_request &parsed) {
    return parsed && parsed.member("swVer") != nullptr && parsed.number("fileSize") != nullptr &&
           parsed.member("fileMd5") != nullptr;
}

void refuse_announcement(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails %s", request.text());
    LAN_LOG(LOG_LEVEL_FAILURE, "error result: %s, data: %s", "data format error", request.text());
    refuse(request.source, "data format error");
}

/** Stores the announcement. A version or MD5 that is not a text leaves the field unchanged. */
void store_image(const json_request &parsed) {
    up_info.file_size = static_cast<uint32_t>(*parsed.number("fileSize"));
    LAN_LOG(LOG_LEVEL_TRACE, "file size:%d", static_cast<int>(up_info.file_size));
    if (const char *sw_ver = parsed.text("swVer")) {
        // A version that fills the field has no NUL.
        std::memset(up_info.sw_ver, 0, sizeof up_info.sw_ver);
        std::memcpy(up_info.sw_ver, sw_ver, strnlen(sw_ver, sizeof up_info.sw_ver));
    }
    if (const char *file_md5 = parsed.text("fileMd5")) {
        copy_text(up_info.file_md5, file_md5);
    }
}

/** Copy of a device's version; empty for an unknown device. */
class device_version {
  public:
    explicit device_version(const char *dev_id) {
        if (const dev_cntl_t *device = engr_get_dev_cntl(dev_id)) {
            const held_mutex hold(engr_get_gw_cntl()->dev_mutex);
            copy_text(text_, device->sw_ver);
        }
    }
    [[nodiscard]] const char *text() const { return text_; }

  private:
    char text_[DEV_SW_VER_SIZE] = {};
};

void answer(const lan_request &request, const char *text) {
    LAN_LOG(LOG_LEVEL_TRACE, "result:%s", text);
    reply_text(request.source, reply_success, text);
}

} // namespace

void __lan_chk_soft_ver(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", request.text());
    const json_request parsed(request.text());
    if (!describes_image(parsed)) {
        return refuse_announcement(request);
    }
    store_image(parsed);
    const gateway_text gw_id(&gw_cntl_t::gw_id);
    const gateway_text sw_ver(&gw_cntl_t::gw_sw_ver);
    LAN_LOG(LOG_LEVEL_TRACE, "sw_ver is %s", sw_ver.text());
    local_text<answer_size> text;
    text->add(R"({"updateStatus":%d, "updateCid":"%s", "cid":"%s", "softVer":"%s", )"
              R"("upgradeMethodVer":"%s"})",
              update_stat.load(), up_info.cid, gw_id.text(), sw_ver.text(), "2.0");
    answer(request, text->text());
}

void __lan_dev_upgrade_info(const lan_request &request) {
    const json_request parsed(request.text());
    const int *firmware_type = parsed ? parsed.number("firmwareType") : nullptr;
    if (!describes_image(parsed) || firmware_type == nullptr || parsed.member("cid") == nullptr) {
        return refuse_announcement(request);
    }
    store_image(parsed);
    up_info.firmware_type = *firmware_type;
    char dev_id[DEV_ID_SIZE] = {};
    const char *cid = parsed.text("cid");
    if (cid != nullptr && is_id(cid)) {
        copy_text(dev_id, cid);
    }
    const device_version sw_ver(dev_id);
    LAN_LOG(LOG_LEVEL_TRACE, "sw_ver is %s", sw_ver.text());
    local_text<answer_size> text;
    text->add(R"({"firmwareType":%d, "updateStatus":%d, "updateCid":"%s", "cids":["%s"], )"
              R"("softVer":"%s"})",
              *firmware_type, update_stat.load(), up_info.cid, dev_id, sw_ver.text());
    answer(request, text->text());
}
