// Requests, their answers, and outcomes that come as reports.
#include "gateway/request.h"

#include "base/json_text.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <memory>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {

using lan_client::answer;
using lan_client::report;

lan_client::request json_request(uint32_t type, const nlohmann::json &payload) {
    try {
        return {
            .type = type, .payload = payload.dump(), .coding = lan_client::request_coding(type)};
    } catch (const nlohmann::json::type_error &) {
        throw wrong_usage("an argument is not valid UTF-8, so it can't be sent as JSON");
    }
}

const std::string &expect_success(gateway_session &session, const answer &answered) {
    if (answered.failure) {
        throw explain(session, answered);
    }
    if (answered.ret != 0) {
        throw refusal(session, answered.type, answered.payload);
    }
    return answered.payload;
}

std::string ask_one(gateway_session &session, lan_client::request wanted) {
    return expect_success(session, session.ask({std::move(wanted)}).front());
}

bool is_refused_with(const answer &answered, std::string_view text) {
    return !answered.failure && answered.ret != 0 && answered.payload == text;
}

int print_result(gateway_session &session, std::string_view sentence,
                 const nlohmann::json &document) {
    if (session.out().json()) {
        nlohmann::json named = document;
        if (named.is_object()) {
            named.emplace("gateway", session.chosen().label());
        }
        session.out().document(named);
    } else {
        session.out().line(sentence);
    }
    return exit_success;
}

failure malformed_answer(std::string_view what, std::string_view payload) {
    constexpr std::size_t shown_bytes = 120;
    return {"bad_answer", fmt::format("the gateway's answer is not a {}: {}", what,
                                      payload.substr(0, shown_bytes))};
}

report_subscription::report_subscription(gateway_session &session)
    : session_(session),
      client_(session.connect(
          false, {.on_report = [queue = queue_](const report &one) { queue->keep(one); },
                  .on_link =
                      [queue = queue_](const lan_client::link_change &change) {
                          if (change.state == lan_client::link_state::lost) {
                              queue->lost = change.why;
                          }
                      },
                  .on_traffic = {}})) {
    session_.require_key();
}

void report_subscription::queue::keep(const report &report) {
    reports.push_back(report);
    bytes += report.payload.size();
    while (reports.size() > 1 && (reports.size() > lan_client::max_kept_reports ||
                                  bytes > lan_client::max_kept_report_bytes)) {
        static_cast<void>(remove(0));
        ++dropped;
    }
}

report report_subscription::queue::remove(std::size_t index) {
    const auto found = reports.begin() + static_cast<std::ptrdiff_t>(index);
    report taken = std::move(*found);
    reports.erase(found);
    bytes -= taken.payload.size();
    return taken;
}

std::optional<report> report_subscription::take(const rule &wanted, uint64_t &unseen) {
    unseen = std::max(unseen, queue_->dropped);
    for (; unseen - queue_->dropped < queue_->reports.size(); ++unseen) {
        const auto index = static_cast<std::size_t>(unseen - queue_->dropped);
        if (wanted(queue_->reports[index])) {
            return queue_->remove(index);
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
            return taken || queue_->lost;
        },
        limit);
    if (!taken && queue_->lost) {
        throw explain(session_, queue_->lost);
    }
    return taken;
}

report report_subscription::outcome(lan_client::request asked, const rule &wanted) {
    const uint32_t type = asked.type;
    const auto answered = std::make_shared<std::optional<answer>>();
    client_.ask(std::move(asked), [answered](const answer &got) { *answered = got; });
    std::optional<report> taken;
    uint64_t unseen = 0;
    // The client bounds the wait.
    session_.loop().run_until(
        [&] {
            taken = take(wanted, unseen);
            return taken || *answered;
        },
        std::chrono::hours(24));
    if (!taken) {
        return {.type = type, .payload = expect_success(session_, answered->value())};
    }
    if (taken->ret != 0) {
        throw refusal(session_, type, taken->payload);
    }
    return *taken;
}

} // namespace engr_app
