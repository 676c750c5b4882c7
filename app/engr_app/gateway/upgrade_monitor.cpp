// Signs of an upgrade under way.
#include "gateway/upgrade_monitor.h"

#include "base/json_text.h"
#include "gateway/upgrade_status.h"
#include "lan_client/frame_types.h"

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;

} // namespace

void upgrade_monitor::show(const std::string &id) {
    heard_ = clock::now();
    if (!running_) {
        running_ = true;
        refuses_commands_ = false;
        id_.clear();
        percent_ = 0;
        moved_ = heard_;
    }
    if (!id.empty()) {
        id_ = id;
    }
}

void upgrade_monitor::hear_percent(const lan_client::report &report) {
    const nlohmann::json body = parse_json(report.payload);
    const auto percent = member_count(body, "progress");
    if (!percent) {
        return;
    }
    if (*percent >= all_percent) {
        return forget();
    }
    show(member_text(body, "cid"));
    if (*percent > percent_) {
        percent_ = *percent;
        moved_ = heard_;
    }
}

void upgrade_monitor::hear(const lan_client::report &report) {
    if (!report.readable || report.ret != 0) {
        return;
    }
    if (report.type == frame_type::upgrade_percent_rpt) {
        hear_percent(report);
    } else if (report.type == frame_type::subdevice_update_rpt) {
        forget();
    }
}

void upgrade_monitor::hear(const lan_client::answer &report) {
    if (report.failure) {
        return;
    }
    const bool announced =
        report.type == frame_type::chk_soft_ver || report.type == frame_type::dev_upgrade_info;
    if (announced && report.ret == 0) {
        const nlohmann::json body = parse_json(report.payload);
        const std::string state = member_text(body, "updateStatus");
        if (state == "0") {
            forget();
        } else if (!state.empty()) {
            show(member_text(body, "updateCid"));
        }
    } else if (report.ret != 0 && report.payload == "dev is upgrading") {
        show("");
    } else if (report.ret != 0 && report.payload == "device is upgrading...") {
        show("");
        refuses_commands_ = true;
    }
}

} // namespace engr_app
