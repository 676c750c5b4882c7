// Signs of an upgrade under way.
#include "lan_client/upgrade_monitor.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "lan_client/upgrade_status.h"

#include <nlohmann/json.hpp>

namespace lan_client {

request upgrade_probe_request() {
    return {
        .type = frame_type::tp_cmd, .payload = "{}", .coding = request_coding(frame_type::tp_cmd)};
}

bool refuses_while_upgrading(const answer &answered) {
    return !answered.failure && answered.ret != 0 && answered.payload == "device is upgrading...";
}

void upgrade_monitor::note_running(const std::string &id) {
    last_sign_ = clock::now();
    if (!running_) {
        running_ = true;
        refuses_commands_ = false;
        id_.clear();
        percent_ = 0;
        last_progress_ = last_sign_;
    }
    if (!id.empty()) {
        id_ = id;
    }
}

void upgrade_monitor::on_percent(const report &report) {
    const nlohmann::json body = parse_json(report.payload);
    const auto percent = member_count(body, "progress");
    if (!percent) {
        return;
    }
    if (*percent >= all_percent) {
        return forget();
    }
    note_running(member_text(body, "cid"));
    if (*percent > percent_) {
        percent_ = *percent;
        last_progress_ = last_sign_;
    }
}

void upgrade_monitor::on_report(const report &report) {
    if (!report.readable || report.ret != 0) {
        return;
    }
    if (report.type == frame_type::upgrade_percent_rpt) {
        on_percent(report);
    } else if (report.type == frame_type::subdevice_update_rpt) {
        forget();
    }
}

void upgrade_monitor::on_answer(const answer &answer) {
    if (answer.failure) {
        return;
    }
    const bool announced =
        answer.type == frame_type::chk_soft_ver || answer.type == frame_type::dev_upgrade_info;
    if (announced && answer.ret == 0) {
        const nlohmann::json body = parse_json(answer.payload);
        const std::string state = member_text(body, "updateStatus");
        if (state == "0") {
            forget();
        } else if (!state.empty()) {
            note_running(member_text(body, "updateCid"));
        }
    } else if (answer.ret != 0 && answer.payload == "dev is upgrading") {
        note_running("");
    } else if (refuses_while_upgrading(answer)) {
        note_running("");
        refuses_commands_ = true;
    }
}

} // namespace lan_client
