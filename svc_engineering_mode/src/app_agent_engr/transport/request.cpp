/* Replies to a request, and its decryption. */
#include "request.h"

#include "base/agent_log.h"
#include "keys.h"
#include "payload_crypto.h"
#include "tcp_send.h"

#include <cstring>
#include <utility>

int32_t reply_empty(const request_source &source) {
    return __mlp_gw_tcp_send(source.socket, source.fr_num, source.fr_type, reply_success, nullptr,
                             0, false);
}

int32_t reply_text(const request_source &source, reply_code ret, const char *text) {
    return __mlp_gw_tcp_send(source.socket, source.fr_num, source.fr_type, ret, text,
                             static_cast<uint32_t>(std::strlen(text)), true);
}

int32_t reply_text(const request_source &source, reply_code ret, platform::heap_block<char> text) {
    return tcp_frame(source.fr_num, source.fr_type, ret, std::move(text)).send_to(source.socket);
}

void refuse(const request_source &source, const char *message) {
    reply_text(source, reply_failure, message);
}

int32_t __lan_encryption_pre_handle(const request_source &source, const uint8_t *payload,
                                    uint32_t len, platform::heap_block<char> &out) {
    LAN_LOG(LOG_LEVEL_TRACE, "lan version over 3.3");
    const tcp_key key = current_tcp_key();
    const int32_t op_ret = __lan_parse_data(payload, len, key.bytes, out);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Cmd Parse Fails %d.Cannot handle", op_ret);
        refuse(source, "parse data error");
    }
    return op_ret;
}
