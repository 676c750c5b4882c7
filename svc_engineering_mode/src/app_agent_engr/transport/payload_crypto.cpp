/* Encryption and decryption of payloads. */
#include "payload_crypto.h"

#include "base/agent_log.h"
#include "platform/crypto.h"
#include "platform/text.h"

#include <utility>

int32_t encrpt_lan_msg(const uint8_t *data, uint32_t len, uint8_t **out, uint32_t *out_len,
                       const uint8_t *key) {
    const int32_t op_ret = aes128_ecb_encode(data, len, out, out_len, key);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "aes128_ecb_encode error:%d", op_ret);
    }
    return op_ret;
}

int32_t __lan_parse_data(const uint8_t *data, uint32_t len, const uint8_t *key,
                         platform::heap_block<char> &out) {
    uint8_t *plain = nullptr;
    uint32_t plain_len = 0;
    const int32_t op_ret = aes128_ecb_decode(data, len, &plain, &plain_len, key);
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "aes128_ecb_decode error:%d", op_ret);
        return op_ret;
    }
    platform::heap_block<char> text(reinterpret_cast<char *>(plain));
    const int32_t brace = str_revr_find_ch(text.get(), 0, '}');
    if (brace < 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "find last } fails %d %s", brace, text.get());
        return -1;
    }
    text.get()[brace + 1] = '\0';
    LAN_LOG(LOG_LEVEL_TRACE, "lan parse decode buf:%s", text.get());
    out = std::move(text);
    return 0;
}
