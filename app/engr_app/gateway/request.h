// One question to the gateway, and its outcome in words.
#pragma once

#include "gateway/session.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/// A request of this type with a JSON text as its payload. Throws a failure of wrong usage when a
/// text in it is not UTF-8.
[[nodiscard]] lan_client::request json_request(std::uint32_t type, const nlohmann::json &payload);

/// The payload of an answer. A refusal or a silence throws a failure that says what to do next.
std::string expect_success(gateway_session &session, const lan_client::answer &answered);

/// Asks one thing; the rest as above.
std::string ask_one(gateway_session &session, lan_client::request wanted);

/// The result of a verb: the document with --json, else the sentence. Returns exit_success.
int print_result(gateway_session &session, std::string_view sentence,
                 const nlohmann::json &document);

/// A failure for arguments that can't be right.
[[nodiscard]] failure wrong_usage(const std::string &sentence);

/// A failure for an answer that is not what it should be, quoting its beginning.
[[nodiscard]] failure malformed_answer(std::string_view what, std::string_view payload);

/// The refusal that a gateway put into words or into {"reason": TEXT}, with what to do next.
[[nodiscard]] failure refusal(gateway_session &session, std::uint32_t type,
                              std::string_view payload);

/// Hears what the gateway reports, from before a question on. Of the reports that nobody has asked
/// for it keeps the newest, max_kept_reports and max_kept_report_bytes of them.
class report_subscription {
  public:
    using rule = std::function<bool(const lan_client::report &)>;

    /// Connects, unless the key of an activated gateway is missing.
    explicit report_subscription(gateway_session &session);
    report_subscription(const report_subscription &) = delete;
    report_subscription &operator=(const report_subscription &) = delete;

    /// The first report not yet taken that the rule wants, taken; nothing when none has come
    /// within the limit. Throws a failure when the connection is lost.
    std::optional<lan_client::report> next(const rule &wanted, std::chrono::milliseconds limit);

    /// Asks what is accepted without an answer: the outcome is a report that the rule wants.
    /// Throws a failure when the gateway refuses at once, stays silent, or reports a failure.
    lan_client::report outcome(lan_client::request asked, const rule &wanted);

  private:
    // Shared with the connection, which the session keeps for longer.
    struct heard {
        std::deque<lan_client::report> reports;
        uint64_t dropped = 0; // from the front, to keep within the bounds
        std::size_t bytes = 0;
        lan_client::error lost;

        void keep(const lan_client::report &report);
        lan_client::report remove(std::size_t index);
    };

    // Looks at the reports from the one that `unseen` counts on; it is moved on behind them.
    std::optional<lan_client::report> take(const rule &wanted, uint64_t &unseen);

    gateway_session &session_;
    std::shared_ptr<heard> heard_ = std::make_shared<heard>();
    lan_client::client &client_;
};

} // namespace engr_app
