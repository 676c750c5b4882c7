/* Reports of the upgrade's progress. */
#include "upgrade_progress.h"

#include "base/agent_log.h"
#include "base/bounded_text.h"
#include "engr_lan_agent.h"
#include "transport/frame_types.h"
#include "upgrade_state.h"

namespace {

constexpr uint32_t progress_text_size = 128;
/** Smallest image size whose product with 100 does not fit into 32 bits. */
constexpr uint32_t coarse_from_size = 0x28F5C28;
/** The rest is for the installation. */
constexpr uint32_t most_percent = 98;

} // namespace

void __rpt_upload_upgrade_percent(const char *cid, uint32_t done, uint32_t total) {
    const uint32_t percent =
        total < coarse_from_size ? done * 100 / (total + 1) : done / 100 / (total / 10000 + 1);
    engr_rpt_upload_upgrade_percent(
        static_cast<int32_t>(percent > most_percent ? most_percent : percent), cid, 0);
}

int32_t engr_rpt_upload_upgrade_percent(int32_t progress, const char *cid, uint8_t /*reserved*/) {
    local_text<progress_text_size> text;
    text->add(R"({"firmwareType":%d, "cid":"%s", "progress":%d})", up_info.firmware_type.load(),
              cid != nullptr ? cid : "", progress);
    LAN_LOG(LOG_LEVEL_TRACE, "data:%s", text->text());
    return engr_lan_data_report_cb(FRM_UPGRADE_PERCENT_RPT, 0, text->text(), text->length());
}
