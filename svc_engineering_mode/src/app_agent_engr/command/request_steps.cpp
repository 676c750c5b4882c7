/* Steps that many command handlers share. */
#include "request_steps.h"

#include "base/agent_log.h"

namespace {

/** Who asks, in sf_cmd_t. */
constexpr uint8_t source_lan_agent = 0;

} // namespace

void refuse_unreadable(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails");
    refuse(request.source, "data format error");
}

void refuse_unreadable_quoted(const lan_request &request) {
    LAN_LOG(LOG_LEVEL_FAILURE, "Json Parse Fails %s", request.text());
    refuse(request.source, "data format error");
}

void log_op_ret(const lan_request &request, int32_t op_ret) {
    LAN_LOG(LOG_LEVEL_FAILURE, "op_ret:%d frame_type:%d cjson format data error", op_ret,
            static_cast<int>(request.source.fr_type));
}

void answer_result(const lan_request &request, int32_t op_ret) {
    if (op_ret != 0) {
        log_op_ret(request, op_ret);
        return refuse(request.source, "inner process failed");
    }
    reply_empty(request.source);
}

int32_t hand_over(json_request &parsed, sf_service service) {
    sf_cmd_t command{source_lan_agent, parsed.root()};
    const int32_t op_ret = service(&command);
    if (op_ret == 0) {
        parsed.release();
    }
    return op_ret;
}

bool is_id(const char *text) {
    for (; *text != '\0'; ++text) {
        if (*text < ' ' || *text > '~' || *text == '"' || *text == '\\') {
            return false;
        }
    }
    return true;
}
