/* Pushing reports to every connected app. */
#include "report.h"

#include "base/agent_log.h"
#include "base/agent_use.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "clients/client_table.h"
#include "engr_lan_agent.h"
#include "frame_types.h"
#include "gateway/device.h"
#include "gateway/gateway.h"
#include "platform/owners.h"
#include "tcp_send.h"

std::atomic<uint16_t> mid_lan_dp_report{CMMOD_NO_MESSAGE_ID};

namespace {

constexpr uint32_t notice_size = 128;

/** Sends to every connected client, in table order. One that fails does not keep the others from
 * getting theirs. */
void send_to_all(uint32_t fr_type, uint32_t ret, const void *data, uint32_t len, bool encrypt) {
    int32_t sockets[lan_client_max];
    const int32_t socket_num = __get_lpc_sockets(sockets);
    tcp_frame frame(0, fr_type, ret, data, len, encrypt);
    for (int32_t i = 0; i < socket_num; ++i) {
        const int32_t op_ret = frame.send_to(sockets[i]);
        if (op_ret != ENGR_OK) {
            LAN_LOG(LOG_LEVEL_FAILURE, "__mlp_gw_tcp_send op_ret:%d", op_ret);
        }
    }
}

int32_t connected_clients(const agent_use &use) {
    return use ? __get_lpc_socket_num() : 0;
}

int32_t send_notice(uint32_t fr_type, const bounded_text &notice) {
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", notice.text());
    return engr_lan_data_report_cb(fr_type, 0, notice.text(), notice.length());
}

/** The block behind a bus message. Its text ends inside the posted bytes, or at the 0 byte that the
 * bus keeps behind them. */
const lan_dp_report_t *report_block(const cmmod_msg_t &message) {
    return static_cast<const lan_dp_report_t *>(message.rfc->data);
}

/** Releases a bus message's data. */
class held_data {
  public:
    explicit held_data(rfc_data_t *rfc) : rfc_(rfc) {}
    held_data(const held_data &) = delete;
    held_data &operator=(const held_data &) = delete;
    ~held_data() { put_rfc_data(rfc_); }
    void give_back() { put_rfc_data(std::exchange(rfc_, nullptr)); }

  private:
    rfc_data_t *rfc_;
};

} // namespace

int32_t engr_lan_data_report_cb(uint32_t fr_type, uint32_t ret, const void *data, uint32_t len) {
    const agent_use use;
    LAN_LOG(LOG_LEVEL_DETAIL, "enter [%s]", __func__);
    if (connected_clients(use) == 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "lan no client");
        return ENGR_ERR_NO_CLIENT;
    }
    send_to_all(fr_type, ret, data, len, true);
    LAN_LOG(LOG_LEVEL_DETAIL, "leave [%s]", __func__);
    return ENGR_OK;
}

int32_t engr_lan_dp_sata_report(const lan_dp_report_t *data, uint32_t len) {
    const agent_use use;
    if (connected_clients(use) == 0) {
        LAN_LOG(LOG_LEVEL_DETAIL, "lan socket num is 0. skip send");
        return ENGR_ERR_NO_CLIENT;
    }
    if (data == nullptr || len < sizeof(lan_dp_report_t)) {
        return ENGR_ERR_ARGUMENT;
    }
    LAN_LOG(LOG_LEVEL_DETAIL, "Post Msg To Send Data BY Lan");
    return cmmod_post_msg(mid_lan_dp_report, data, len);
}

void __lan_dp_report_cb(cmmod_msg_t *message) {
    held_data rfc(message->rfc);
    const agent_use use;
    const lan_dp_report_t *block = report_block(*message);
    if (connected_clients(use) == 0) {
        LAN_LOG(LOG_LEVEL_DETAIL, "no socket connect. return");
        return;
    }
    platform::heap_block<uint8_t> packed;
    uint32_t packed_len = 0;
    const int32_t op_ret =
        engr_pack_data_with_cmd(0, block->data, 0, block->pack_arg, packed.out(), &packed_len);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "pack_data_with_cmd error:%d", op_ret);
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "Prepare To Send Lan:%s", block->data);
    rfc.give_back();
    send_to_all(FRM_DP_REPORT, 0, packed.get(), packed_len, false);
}

int32_t engr_lan_sub_dev_bind_report(const char *cid, const char *pid) {
    if (cid == nullptr || pid == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    local_text<notice_size> notice;
    notice->add(R"({"products":[{"cid":"%s","pid":"%s"}]})", cid, pid);
    return send_notice(FRM_SUB_DEV_BIND_RPT, *notice);
}

int32_t engr_lan_sub_dev_unbind_report(const char *cid) {
    if (cid == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    local_text<notice_size> notice;
    notice->add(R"({"cid":"%s"})", cid);
    return send_notice(FRM_SUB_DEV_UNBIND_RPT, *notice);
}

int32_t engr_lan_gw_unactive_report(void) {
    const gateway_text<DEV_ID_SIZE> gw_id(&gw_cntl_t::gw_id);
    local_text<notice_size> notice;
    notice->add(R"({"cid":"%s"})", gw_id.text());
    return send_notice(FRM_GW_UNACTIVE_RPT, *notice);
}
