/* One datagram of the access-point configuration: checked, decrypted and parsed. */
#include "ap_datagram.h"

#include "base/agent_log.h"
#include "base/json_request.h"
#include "transport/frame.h"
#include "transport/frame_types.h"
#include "transport/keys.h"
#include "transport/payload_crypto.h"

namespace {

using platform::heap_block;

/** Whether the bytes are one frame. Head and CRC are not checked. */
bool is_frame(const uint8_t *bytes, uint32_t size) {
    if (size < frame_request_min) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Rev Data Too short %d %d", static_cast<int>(size),
                static_cast<int>(frame_request_min));
        return false;
    }
    const frame_start start = read_frame_start(bytes, size);
    if (start.total() > ap_datagram_size) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Frame is Too Big To Recv");
        return false;
    }
    if (start.total() > size || start.length < frame_trailer_size) {
        LAN_LOG(LOG_LEVEL_FAILURE, "frame of length %u in a datagram of %u bytes", start.length,
                size);
        return false;
    }
    const uint32_t tail = read_frame_tail(bytes, static_cast<uint32_t>(start.total()));
    if (tail != frame_tail) {
        LAN_LOG(LOG_LEVEL_FAILURE, "check tail fails:0x%x", tail);
        return false;
    }
    if (start.fr_type != FRM_AP_NW_CFG && start.fr_type != FRM_UDP_WIFI_ERR) {
        LAN_LOG(LOG_LEVEL_TRACE, "Frame Type Cannot Parse:%d", static_cast<int>(start.fr_type));
        return false;
    }
    return true;
}

/** Hands the credentials of a configuration text to the application. */
bool hand_on(const char *text, lan_ap_cfg_finish_cb_t finish_cb) {
    const json_request parsed(text);
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Data:%s", text);
    if (!parsed) {
        LAN_LOG(LOG_LEVEL_FAILURE, "kl_cJSON_Parse error:%s", text);
        return false;
    }
    const char *ssid = parsed.text("ssid");
    const char *token = parsed.text("token");
    if (ssid == nullptr || token == nullptr) {
        LAN_LOG(LOG_LEVEL_FAILURE, "data format error:%s", text);
        return false;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Parse ssid:%s token:%s", ssid, token);
    const char *passwd = parsed.text("passwd");
    if (passwd != nullptr && passwd[0] == '\0') {
        passwd = nullptr;
    }
    if (passwd != nullptr) {
        LAN_LOG(LOG_LEVEL_TRACE, "Parse passwd:%s", passwd);
    }
    const int op_ret = finish_cb(ssid, passwd, token);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Send Parsed result error:%d", op_ret);
        return false;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Send Parsed Result Success");
    return true;
}

} // namespace

bool handle_ap_datagram(uint8_t (&bytes)[ap_datagram_size], uint32_t size,
                        lan_ap_cfg_finish_cb_t finish_cb) {
    if (!is_frame(bytes, size)) {
        return false;
    }
    const frame_start start = read_frame_start(bytes, size);
    uint8_t *payload = bytes + frame_request_payload_offset;
    const uint32_t payload_size = start.length - frame_trailer_size;
    if (start.fr_type == FRM_UDP_WIFI_ERR) {
        heap_block<char> text;
        return __lan_parse_data(payload, payload_size, app_key1, text) == 0 &&
               hand_on(text.get(), finish_cb);
    }
    payload[payload_size] = '\0'; // overwrites the CRC
    return hand_on(reinterpret_cast<const char *>(payload), finish_cb);
}
