/* Reports of the upgrade's progress. */
#include "clients/agent_log.h"
#include "engr_lan_agent.h"
#include "transport/bounded_text.h"
#include "transport/frame_types.h"
#include "upgrade_state.h"

namespace {

constexpr uint32_t progress_text_size = 128;

} // namespace

int32_t engr_rpt_upload_upgrade_percent(int32_t progress, const char *cid, uint8_t /*reserved*/) {
    local_text<progress_text_size> text;
    text->add(R"({"firmwareType":%d, "cid":"%s", "progress":%d})", up_info.firmware_type.load(),
              cid != nullptr ? cid : "", progress);
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", text->text());
    return engr_lan_data_report_cb(FRM_UPGRADE_PERCENT_RPT, 0, text->text(), text->length());
}
