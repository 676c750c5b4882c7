/* The table of registered frame handlers. */
#include "registered_handlers.h"

#include "base/agent_log.h"
#include "base/json_request.h"
#include "engr_lan_agent.h"

#include <atomic>

namespace {

constexpr uint32_t handler_max = 20;

struct lan_protocol_handler_t {
    uint32_t frame_type;
    lan_protocol_cb_t handler;
};

/** Only grows: a slot is filled before the count makes it visible to lookups on other threads. */
struct lan_protocol_mgr_t {
    lan_protocol_handler_t handlers[handler_max];
    std::atomic<uint32_t> lan_protocol_handler_cnt;
};

lan_protocol_mgr_t lan_protocol_mgr{};

lan_protocol_cb_t find_handler(uint32_t frame_type) {
    const uint32_t count = lan_protocol_mgr.lan_protocol_handler_cnt.load();
    for (uint32_t i = 0; i < count; ++i) {
        const lan_protocol_handler_t &slot = lan_protocol_mgr.handlers[i];
        LAN_LOG(LOG_LEVEL_TRACE, "frame_type Rev CMD %d", static_cast<int>(slot.frame_type));
        if (slot.frame_type == frame_type) {
            return slot.handler;
        }
    }
    return nullptr;
}

} // namespace

int32_t __lan_protocol_handler_ex(const request_source &source, const uint8_t *payload,
                                  uint32_t len) {
    LAN_LOG(LOG_LEVEL_TRACE, "__lan_protocol_handler_ex Rev CMD %d",
            static_cast<int>(source.fr_type));
    const lan_protocol_cb_t handler = find_handler(source.fr_type);
    if (handler == nullptr) {
        return ENGR_ERR_NO_HANDLER;
    }
    platform::heap_block<char> text;
    if (__lan_encryption_pre_handle(source, payload, len, text) != 0) {
        return ENGR_ERR_FAILED;
    }
    json_request json(text.get());
    text.reset();
    if (!json) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Not Json Cmd Parse Fails");
        refuse(source, "data format error");
        return ENGR_ERR_FAILED;
    }
    const int op_ret = handler(json.root());
    if (op_ret != 0) {
        LAN_LOG(LOG_LEVEL_FAILURE, "Json Cmd handler err op_ret = %d", op_ret);
        refuse(source, "Json Cmd handler err");
        return ENGR_ERR_FAILED;
    }
    json.release();
    reply_empty(source);
    return ENGR_OK;
}

int32_t engr_lan_protocol_register_cb(int32_t frame_type, lan_protocol_cb_t handler) {
    if (handler == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    uint32_t count = 0;
    {
        const platform::held_critical_section hold;
        count = lan_protocol_mgr.lan_protocol_handler_cnt.load();
        if (count < handler_max) {
            lan_protocol_mgr.handlers[count] = {static_cast<uint32_t>(frame_type), handler};
            lan_protocol_mgr.lan_protocol_handler_cnt.store(count + 1);
        }
    }
    if (count >= handler_max) {
        LAN_LOG(LOG_LEVEL_FAILURE, "register lan proto err, reach max: %d",
                static_cast<int>(count));
        return ENGR_ERR_ARGUMENT;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "frame_type: %d, lan_protocol_handler_cnt: %d", frame_type,
            static_cast<int>(count + 1));
    return ENGR_OK;
}
