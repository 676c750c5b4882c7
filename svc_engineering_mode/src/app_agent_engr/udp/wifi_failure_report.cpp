/* The report of a failed network configuration. */
#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "engr_lan_agent.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/socket.h"
#include "platform/wifi.h"
#include "transport/frame.h"
#include "transport/frame_types.h"
#include "transport/keys.h"
#include "transport/payload_crypto.h"

#include <atomic>

namespace {

using platform::heap_block;

constexpr uint16_t wifi_error_port = 6670;
constexpr uint32_t report_text_size = 128;
/** Datagrams get lost, so each report is sent several times. */
constexpr int report_copies = 4;
constexpr uint32_t report_pause_ms = 10;
/** nw_cfg_stat while configuration by access point is under way. */
constexpr uint32_t configuring_by_access_point = 1;

std::atomic<bool> has_send_err{false};

/** A UDP socket that may broadcast, closed with its scope. */
class broadcast_socket {
  public:
    broadcast_socket() : descriptor_(kelo_hal_net_socket_create(KELO_SOCKET_UDP)) {
        if (descriptor_ >= 0) {
            kelo_hal_net_set_boardcast(descriptor_);
        }
    }
    broadcast_socket(const broadcast_socket &) = delete;
    broadcast_socket &operator=(const broadcast_socket &) = delete;
    ~broadcast_socket() {
        if (descriptor_ >= 0) {
            kelo_hal_net_close(descriptor_);
        }
    }

    explicit operator bool() const { return descriptor_ >= 0; }
    [[nodiscard]] int32_t descriptor() const { return descriptor_; }

  private:
    int32_t descriptor_;
};

/** Builds the frame of a report; empty when it can't be built, which is logged. */
heap_block<uint8_t> build_report(const bounded_text &text, uint32_t &frame_size) {
    heap_block<uint8_t> cipher;
    uint32_t cipher_len = 0;
    make_key1_encode();
    const int32_t op_ret = encrpt_lan_msg(reinterpret_cast<const uint8_t *>(text.text()),
                                          text.length(), cipher.out(), &cipher_len, app_key1);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "aes128_ecb_encode error:%d", op_ret);
        return {};
    }
    heap_block<uint8_t> frame(
        __mlp_gw_send_da(0, FRM_UDP_WIFI_ERR, 0, cipher.get(), cipher_len, &frame_size));
    if (!frame) {
        LAN_LOG(LOG_LEVEL_FAILURE, "__gw_send_da_to_app error");
    }
    return frame;
}

/** Broadcasts that the network configuration failed. */
void __udp_dev_wifi_err_report(const char *desc, int32_t result) {
    const broadcast_socket socket;
    if (!socket) {
        LAN_LOG(LOG_LEVEL_FAILURE, "create udp socket err");
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Create UDP Socket To Broadcast WIFI Status Info");
    local_text<report_text_size> text;
    text->add(R"({"result":%d,"desc":"%s"})", result, desc);
    LAN_LOG(LOG_LEVEL_TRACE, "BufToSend %s", text->text());
    uint32_t frame_size = 0;
    heap_block<uint8_t> frame = build_report(*text, frame_size);
    if (!frame) {
        return;
    }
    int32_t sent = 0;
    for (int copy = 0; copy < report_copies; ++copy) {
        sent = kelo_hal_net_send_to(socket.descriptor(), frame.get(), frame_size,
                                    KELO_ADDRESS_BROADCAST, wifi_error_port);
        kelo_hal_system_sleep(report_pause_ms);
    }
    frame.reset();
    if (sent < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "sendto Failed,len:%d ret:%d,errno:%d port:%d",
                static_cast<int>(frame_size), sent, kelo_hal_net_get_errno(), wifi_error_port);
    }
}

} // namespace

void engr_lan_ap_nw_cfg_error_report(const char *desc, int32_t result) {
    if (gateway_field(&gw_cntl_t::nw_cfg_stat) != configuring_by_access_point) {
        return;
    }
    uint32_t mode = 0;
    static_cast<void>(wf_wk_mode_get(&mode));
    if (mode != WF_WORK_MODE_ACCESS_POINT || has_send_err.exchange(true)) {
        return;
    }
    __udp_dev_wifi_err_report(desc != nullptr ? desc : "", result);
    wf_ap_stop();
    const gateway_text ssid(&gw_cntl_t::wf_ssid);
    const gateway_text passwd(&gw_cntl_t::wf_passwd);
    wf_station_connect(ssid.text(), passwd.text());
    LAN_LOG(LOG_LEVEL_TRACE, "ap config status report %d Finish", result);
}
