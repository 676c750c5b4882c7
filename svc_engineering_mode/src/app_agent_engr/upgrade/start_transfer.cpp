/* The upgrade service starts the transfer of an image. */
#include "base/agent_log.h"
#include "base/agent_use.h"
#include "base/bounded_text.h"
#include "base/gateway_fields.h"
#include "chunk_request.h"
#include "engr_lan_agent.h"
#include "transport/frame.h"
#include "upgrade_state.h"

#include <algorithm>

namespace {

constexpr uint32_t default_chunk_size = 0x80000;
/** Bytes before the image's in a chunk's payload. */
constexpr uint32_t chunk_head_size = 4;

/** Most bytes to ask for at once: with the full limit what the service wants, else no more than
 * what a frame can bring. */
uint32_t fitting_chunk_size(uint32_t wanted) {
    return frame_request_limit == frame_request_full_limit
               ? wanted
               : std::min(wanted, frame_request_limit - 1 - frame_request_min - chunk_head_size);
}

} // namespace

int32_t lan_gw_start_upgrade(const char *dev_id, const lan_fw_info_t *firmware,
                             get_file_cb_t get_file_cb, void *cb_arg, ug_notify_cb_t ug_notify_cb,
                             uint32_t rpt_percent, uint32_t chunk_size) {
    if (firmware == nullptr || get_file_cb == nullptr || ug_notify_cb == nullptr) {
        return ENGR_ERR_ARGUMENT;
    }
    lan_upg_mgr_t manager{};
    manager.rpt_percent = rpt_percent;
    manager.get_file_cb = get_file_cb;
    manager.ug_notify_cb = ug_notify_cb;
    manager.cb_arg = cb_arg;
    manager.fw_info = *firmware;
    const bool is_named = dev_id != nullptr && dev_id[0] != '\0';
    copy_text(manager.cid, is_named ? dev_id : gateway_text(&gw_cntl_t::gw_id).text());
    manager.chunk_size = fitting_chunk_size(chunk_size != 0 ? chunk_size : default_chunk_size);
    const int32_t op_ret = upgrade_set_up_transfer(manager);
    if (op_ret != 0) {
        return op_ret;
    }
    chunk_request first(manager.cid, 0, std::min(manager.chunk_size, firmware->file_size));
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", first.text());
    const agent_use use;
    if (use) {
        // The watchdog covers a failed send.
        static_cast<void>(first.send());
    }
    return ENGR_OK;
}
