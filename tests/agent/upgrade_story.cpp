/* The recording upgrade service. */
#include "upgrade_story.h"

#include "transport/frame_types.h"

recording_service service;

namespace {

int take_chunk(lan_fw_info_t *firmware, uint32_t total, uint32_t offset, const uint8_t *data,
               uint32_t length, uint32_t *remain_len, void *cb_arg) {
    recording_service &self = *static_cast<started_transfer *>(cb_arg)->service;
    EXPECT_EQ(total, firmware->file_size);
    *firmware = {}; // its own copy; nothing of the agent may depend on it afterwards
    EXPECT_TRUE(length == 0 || data != nullptr);
    self.calls.push_back("chunk " + std::to_string(offset) + "+" + std::to_string(length));
    *remain_len = self.remain_len;
    if (self.in_chunk) {
        self.in_chunk();
    }
    return self.chunk_result;
}

int take_outcome(lan_fw_info_t *firmware, int result, void *cb_arg) {
    auto &transfer = *static_cast<started_transfer *>(cb_arg);
    recording_service &self = *transfer.service;
    EXPECT_EQ(firmware->file_size, self.offered.file_size)
        << "expected the record that the transfer was started with";
    transfer.outcomes += std::to_string(result);
    self.calls.push_back("outcome " + std::to_string(result));
    if (self.in_outcome) {
        self.in_outcome(result);
    }
    return 0;
}

int32_t take_offer(lan_fw_info_t *firmware) {
    service.calls.push_back("offer " + std::to_string(firmware->fw_kind) + " " + firmware->sw_ver +
                            " " + std::to_string(firmware->file_size) + " " + firmware->file_md5);
    service.offered = *firmware;
    if (service.starts_transfer) {
        EXPECT_EQ(service.start_transfer(), 0);
    }
    return service.offer_result;
}

int32_t take_device_offer(const char *dev_id, lan_fw_info_t *firmware) {
    service.calls.push_back(std::string("for ") + dev_id);
    return take_offer(firmware);
}

} // namespace

size_t recording_service::outcomes() const {
    size_t count = 0;
    for (const std::string &one : calls) {
        count += one.starts_with("outcome") ? 1 : 0;
    }
    return count;
}

std::string recording_service::take_calls() {
    std::string all;
    for (const std::string &one : calls) {
        all += (all.empty() ? "" : "; ") + one;
    }
    calls.clear();
    return all;
}

int32_t recording_service::start_transfer(const char *dev_id) {
    started_transfer &transfer = transfers.emplace_back(started_transfer{this, ""});
    return lan_gw_start_upgrade(dev_id, &offered, take_chunk, &transfer, take_outcome, rpt_percent,
                                chunk_size);
}

std::string recording_service::outcome_of_each() const {
    std::string all;
    for (const started_transfer &one : transfers) {
        all += (all.empty() ? "" : " ") + (one.outcomes.empty() ? "-" : one.outcomes);
    }
    return all;
}

upgrade_gateway::upgrade_gateway(sim::world &world) : story_gateway(world) {
    service = {};
    engr_get_gw_cntl()->gw_lan_ug_cb = take_offer;
    engr_get_gw_cntl()->dev_lan_ug_cb = take_device_offer;
}

std::string chunk(uint32_t offset, std::string_view bytes) {
    std::string payload;
    for (const int shift : {24, 16, 8, 0}) {
        payload += static_cast<char>(offset >> shift);
    }
    return payload.append(bytes);
}

std::string announce(story_app &app, uint32_t size, const char *version) {
    return app.ask(FRM_CHK_SOFT_VER,
                   R"({"swVer":")" + std::string(version) + R"(","fileSize":)" +
                       std::to_string(size) + R"(,"fileMd5":"0123456789abcdef0123456789abcdef+"})",
                   true);
}

std::string begin_upgrade(story_app &app, uint32_t size) {
    announce(app, size);
    EXPECT_EQ(app.ask(FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":0})", true), "230/7/0/");
    return service.starts_transfer ? app.receive_text() : "";
}
