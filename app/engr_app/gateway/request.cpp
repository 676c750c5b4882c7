// Questions, refusals in words, and outcomes that come as reports.
#include "gateway/request.h"

#include "base/json_text.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using lan_client::answer;
using lan_client::report;

struct advice {
    std::uint32_t type; // 0: whatever was asked
    std::string_view reply;
    std::string_view next;
};

constexpr advice advices[] = {
    {0, "data format error", "it can't read this request: its version may differ from this app's"},
    {0, "parse data error",
     "it can't decrypt the request: check --local-key, or leave it out for a gateway that is not "
     "activated"},
    {0, "device is upgrading...", "try again after the upgrade"},
    {0, "devid not found", "engr_app devices lists the devices"},
    {0, "json obj data unvalid",
     "the device is offline, see engr_app online, or has no data points yet"},
    {0, "permit join set error", "the kind of device may not be right, see engr_app join --help"},
    {0, "scene execute error",
     "there may be no such scene in that group, engr_app scene oper save stores one, or none of "
     "its "
     "devices is online, see engr_app online"},
    {0, "query dp failed",
     "the device may be offline, see engr_app online, or lack a data point, see engr_app dp get"},
    {0, "group oper failed", "check the ids; engr_app devices lists the devices"},
    {0, "scene oper failed", "check the ids and the actions; engr_app devices lists the devices"},
    {0, "set panel cmd error", "check the panel's id; engr_app devices lists the devices"},
    {0, "get scene error",
     "it could not store the scenes and has none now; correct them and send "
     "them again"},
    {0, "set channel error", "channels are 11 to 26"},
    {0, "get channel error", "its radio may still be starting, try again"},
    {0, "download cloud config error", "it could not write the file; its storage may be full"},
    {0, "download app config error", "it could not write the file; its storage may be full"},
    {0, "sync config error",
     "it stored the file but could not take it over; check its content "
     "and push it again"},
    {0, "read config error", "it has none yet; engr_app config push app FILE gives it one"},
    {0, "read log error", "it has no log at hand: a log is removed once it was fetched"},
    {0, "gw unactive failed", "it is still activated; try again"},
    {0, "dev is upgrading", "an upgrade is under way already; try again after it"},
    {0, "file_size is zero", "another app withdrew the announcement of the image; try again"},
    {0, "Json Parse Fails", "it can't read this request: its version may differ from this app's"},
    {0, "malloc error", "it is out of memory; restart it and try again"},
    {0, "gw_lan_ug_cb func not exist", "it can't upgrade itself over the local network"},
    {0, "dev_lan_ug_cb func not exist", "it can't upgrade its devices over the local network"},
    {0, "gw_lan_ug_cb error",
     "its upgrade service does not take this image: it may be too large or of a version that it "
     "refuses, or another is being installed; engr_app log has the reason"},
    {0, "dev_lan_ug_cb error",
     "its upgrade service does not take this image for this device: the device may be offline, the "
     "image too large or of a version that it refuses, or another is being installed; engr_app "
     "log has the reason"},
    {frame_type::token_bind, "inner process failed", "it does not take this token; get a new one"},
    {frame_type::wifi_modify, "inner process failed",
     "it stays on its network; check the name and the password"},
    {frame_type::user_bind_req_engr, "inner process failed",
     "check the ids and products of the file; engr_app devices shows what is bound"},
};

std::string_view advice_for(std::uint32_t type, std::string_view reply) {
    const auto *found = std::ranges::find_if(advices, [&](const advice &one) {
        return one.reply == reply && (one.type == 0 || one.type == type);
    });
    return found == std::end(advices) ? std::string_view() : found->next;
}

bool is_refused_in_silence(const answer &answered) {
    const auto *info = lan_client::find_frame_type(answered.type);
    return answered.failure.kind == lan_client::error_kind::timed_out && info != nullptr &&
           info->answer == lan_client::answer_rule::on_success_only;
}

} // namespace

lan_client::request json_request(std::uint32_t type, const nlohmann::json &payload) {
    try {
        return {
            .type = type, .payload = payload.dump(), .coding = lan_client::request_coding(type)};
    } catch (const nlohmann::json::type_error &) {
        throw wrong_usage("an argument is not valid UTF-8, so it can't be sent as JSON");
    }
}

failure wrong_usage(const std::string &sentence) {
    return {"usage", sentence, exit_wrong_usage};
}

failure malformed_answer(std::string_view what, std::string_view payload) {
    constexpr std::size_t shown_bytes = 120;
    return {"bad_answer", "the gateway's answer is no " + std::string(what) + ": " +
                              std::string(payload.substr(0, shown_bytes))};
}

failure refusal(gateway_session &session, std::uint32_t type, std::string_view payload) {
    const std::string reason = member_text(parse_json(payload), "reason");
    const std::string reply = reason.empty() ? std::string(payload) : reason;
    const std::string_view next = advice_for(type, reply);
    return {"refused_by_gateway", session.chosen().name() + " answered: " +
                                      (reply.empty() ? "refused, without a reason" : reply) +
                                      (next.empty() ? "" : "; ") + std::string(next)};
}

std::string expect_success(gateway_session &session, const answer &answered) {
    if (is_refused_in_silence(answered)) {
        throw failure(
            "not_accepted",
            session.chosen().name() +
                " did not accept the command: it leaves one that it refuses without an "
                "answer, as for an unknown device or group, a device that is offline, or a "
                "wrong data point or value; see engr_app online and engr_app dp get");
    }
    if (answered.failure) {
        throw session.explain(answered);
    }
    if (answered.ret != 0) {
        throw refusal(session, answered.type, answered.payload);
    }
    return answered.payload;
}

std::string ask_one(gateway_session &session, lan_client::request wanted) {
    return expect_success(session, session.ask({std::move(wanted)}).front());
}

int print_result(gateway_session &session, std::string_view sentence,
                 const nlohmann::json &document) {
    if (session.out().json()) {
        session.out().document(document);
    } else {
        session.out().line(sentence);
    }
    return exit_success;
}

report_subscription::report_subscription(gateway_session &session)
    : session_(session),
      client_(session.connect(
          false, {.on_report = [ear = heard_](const report &report) { ear->keep(report); },
                  .on_link =
                      [ear = heard_](const lan_client::link_change &change) {
                          if (change.state == lan_client::link_state::lost) {
                              ear->lost = change.why;
                          }
                      },
                  .on_traffic = {}})) {
    session_.ask({}); // only insists on the key
}

void report_subscription::heard::keep(const report &report) {
    reports.push_back(report);
    bytes += report.payload.size();
    while (reports.size() > 1 && (reports.size() > lan_client::max_kept_reports ||
                                  bytes > lan_client::max_kept_report_bytes)) {
        static_cast<void>(remove(0));
        ++dropped;
    }
}

report report_subscription::heard::remove(std::size_t index) {
    const auto found = reports.begin() + static_cast<std::ptrdiff_t>(index);
    report taken = std::move(*found);
    reports.erase(found);
    bytes -= taken.payload.size();
    return taken;
}

std::optional<report> report_subscription::take(const rule &wanted, uint64_t &unseen) {
    unseen = std::max(unseen, heard_->dropped);
    for (; unseen - heard_->dropped < heard_->reports.size(); ++unseen) {
        const auto index = static_cast<std::size_t>(unseen - heard_->dropped);
        if (wanted(heard_->reports[index])) {
            return heard_->remove(index);
        }
    }
    return std::nullopt;
}

std::optional<report> report_subscription::next(const rule &wanted,
                                                std::chrono::milliseconds limit) {
    std::optional<report> taken;
    uint64_t unseen = 0;
    session_.loop().run_until(
        [&] {
            taken = take(wanted, unseen);
            return taken || heard_->lost;
        },
        limit);
    if (!taken && heard_->lost) {
        throw session_.explain(heard_->lost);
    }
    return taken;
}

report report_subscription::outcome(lan_client::request asked, const rule &wanted) {
    const std::uint32_t type = asked.type;
    const auto answered = std::make_shared<std::optional<answer>>();
    client_.ask(std::move(asked), [answered](const answer &got) { *answered = got; });
    std::optional<report> report;
    uint64_t unseen = 0;
    // The client bounds the wait.
    session_.loop().run_until(
        [&] {
            report = take(wanted, unseen);
            return report || *answered;
        },
        std::chrono::hours(24));
    if (!report) {
        return {.type = type, .payload = expect_success(session_, answered->value())};
    }
    if (report->ret != 0) {
        throw refusal(session_, type, report->payload);
    }
    return *report;
}

} // namespace engr_app
