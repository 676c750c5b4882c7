/* The dispatcher: registered handlers first, then decryption, then the table of frame types. */
#include "dispatcher.h"

#include "base/agent_log.h"
#include "command_handlers.h"
#include "engr_lan_agent.h"
#include "transport/frame_types.h"
#include "transport/registered_handlers.h"

#include <cstring>

namespace {

enum class frame_way : uint8_t { request, answered, report, datagram };
enum class frame_payload : uint8_t { raw, decrypted, none };
using frame_handler = void (*)(const lan_request &request);
constexpr frame_handler no_handler = nullptr;

struct frame_type_entry {
    uint32_t number;
    frame_way way;
    frame_payload payload;
    frame_handler handler;
};

constexpr frame_type_entry frame_types[] = {
#define LAN_FRAME_TYPE_ENTRY(number, name, way, payload, handler, meaning)                         \
    {number, frame_way::way, frame_payload::payload, handler},
    LAN_FRAME_TYPES(LAN_FRAME_TYPE_ENTRY)
#undef LAN_FRAME_TYPE_ENTRY
};

/** Entry for an unlisted type: decrypted like any other, then logged as unsupported. */
constexpr frame_type_entry unsupported{0, frame_way::request, frame_payload::decrypted, no_handler};

const frame_type_entry &find_request_type(uint32_t fr_type) {
    for (const frame_type_entry &entry : frame_types) {
        if (entry.number == fr_type && entry.way == frame_way::request) {
            return entry;
        }
    }
    return unsupported;
}

void run_handler(const frame_type_entry &entry, const lan_request &request) {
    LAN_LOG(LOG_LEVEL_TRACE, "tmp_out length is %d", static_cast<int>(request.tmp_len));
    if (entry.handler == no_handler) {
        LAN_LOG(LOG_LEVEL_FAILURE, "unsupport frame type:%d",
                static_cast<int>(request.source.fr_type));
        return;
    }
    entry.handler(request);
}

} // namespace

void __lan_nop(const lan_request & /*request*/) {}

void __lan_protocol_process(const request_source &source, const uint8_t *payload, uint32_t len) {
    LAN_LOG(LOG_LEVEL_TRACE, "Process Data. Num:%d Type:%d Len:%d", static_cast<int>(source.fr_num),
            static_cast<int>(source.fr_type), static_cast<int>(len));
    if (__lan_protocol_handler_ex(source, payload, len) != ENGR_ERR_NO_HANDLER) {
        return;
    }
    LAN_LOG(LOG_LEVEL_TRACE, "lan encryption enable");
    const frame_type_entry &entry = find_request_type(source.fr_type);
    if (len == 0 || entry.payload == frame_payload::raw) {
        run_handler(entry, {source, payload, len});
        return;
    }
    platform::heap_block<char> text;
    if (__lan_encryption_pre_handle(source, payload, len, text) != 0) {
        return;
    }
    const auto *plain = reinterpret_cast<const uint8_t *>(text.get());
    run_handler(entry, {source, plain, static_cast<uint32_t>(std::strlen(text.get()))});
}
