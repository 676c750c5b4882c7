/* Commands to the gateway itself: binding, joining, Wi-Fi, deactivation. */
#include "gateway/gateway.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "command_handlers.h"
#include "platform/clock.h"
#include "request_steps.h"

namespace {

/** Logged when a member is missing or of another type. */
constexpr int32_t err_incomplete = -803;
/** Added to the type of a request to make the kind for permit_join. */
constexpr uint32_t join_kind_offset = 3;
/** Result of permit_join on success. */
constexpr int32_t join_set = 1;
/** Time for the app to get ready for another key. */
constexpr uint32_t deactivation_pause_ms = 500;
constexpr uint32_t bind_text_size = 128;
constexpr uint8_t rst = GW_RESET_BY_APP;

void refuse_incomplete(const lan_request &request) {
    log_op_ret(request, err_incomplete);
    refuse(request.source, "data format error");
}

/** Opens or closes joining. Returns false when that failed, but not when the gateway has no
 * permit_join. */
bool permit_join(uint32_t type, uint32_t time_s) {
    const auto permit_join = gateway_field(&gw_cntl_t::permit_join);
    const auto kind = static_cast<uint8_t>(type + join_kind_offset);
    return permit_join == nullptr || permit_join(kind, time_s != 0, time_s) == join_set;
}

/**
 * Enters the sub-devices of a binding request and initialises the gateway.
 *
 * @param[out] channel  its radio channel
 */
int32_t __gw_user_token_bind(const char *payload, uint32_t length, int32_t &channel) {
    int32_t op_ret = gw_engineer_add_sub_dev_to_list(payload, length);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "gw_engineer_add_sub_dev_to_list error:%d", op_ret);
        return op_ret;
    }
    op_ret = engr_gw_cntl_init_local(&channel);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "engr_gw_cntl_init_local error:%d", op_ret);
    }
    return op_ret;
}

bool has_products(const char *text) {
    const json_request parsed(text);
    return parsed && parsed.member("products") != nullptr;
}

} // namespace

void lan_bind_token(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Data:%s", request.text());
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    const char *token = parsed.text("token");
    if (token == nullptr) {
        return refuse_incomplete(request);
    }
    answer_result(request, engr_gw_user_token_bind(token));
}

void lan_permit_join(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Data:%s", request.text());
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    const int *type = parsed.number("type");
    const int *time = parsed.number("time");
    if (type == nullptr || time == nullptr) {
        return refuse_incomplete(request);
    }
    if (!permit_join(static_cast<uint32_t>(*type), static_cast<uint32_t>(*time))) {
        return refuse(request.source, "permit join set error");
    }
    reply_empty(request.source);
}

void lan_modify_wifi(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "Rev Data:%s", request.text());
    const json_request parsed(request.text());
    if (!parsed) {
        return refuse_unreadable(request);
    }
    const char *ssid = parsed.text("ssid");
    const char *password = parsed.text("passwd");
    const bool is_password_readable = password != nullptr || parsed.member("passwd") == nullptr;
    if (ssid == nullptr || !is_password_readable) {
        return refuse_incomplete(request);
    }
    answer_result(request, gw_wifi_modify_and_conn(ssid, password));
}

void lan_bind_sub_devices(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "FRM_USER_BIND_REQ_ENGR");
    if (!has_products(request.text())) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails %s", request.text());
        LAN_LOG(LOG_LEVEL_TRACE, "result:%s", "Json Parse Fails");
        return refuse(request.source, "Json Parse Fails");
    }
    int32_t channel = 0;
    const int32_t op_ret = __gw_user_token_bind(request.text(), request.tmp_len, channel);
    if (op_ret != 0) {
        return answer_result(request, op_ret);
    }
    local_text<bind_text_size> text;
    text->add(R"({"channel":%d})", channel);
    LAN_LOG(LOG_LEVEL_TRACE, "result:%s", text->text());
    reply_text(request.source, reply_success, text->text());
}

void lan_deactivate(const lan_request &request) {
    const int32_t op_ret = engr_gw_unactive(&rst);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "gw_unactive error:%d", op_ret);
        return refuse(request.source, "gw unactive failed");
    }
    set_gateway_field<uint8_t>(&gw_cntl_t::active_stat, GW_DEACTIVATED);
    kelo_hal_system_sleep(deactivation_pause_ms);
    reply_empty(request.source);
}
