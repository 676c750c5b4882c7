// One request to the gateway and what comes of it: an answer, or a report that comes later.
#pragma once

#include "gateway/explain.h"
#include "gateway/session.h"

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * @return a request of this frame type with a JSON text as its payload; throws a failure of wrong
 *         usage when a text in it is not UTF-8
 */
[[nodiscard]] lan_client::request json_request(uint32_t type, const nlohmann::json &payload);

/**
 * The one way to take an answer.
 *
 * @return the answer's payload; throws what explains a refusal or a missing answer
 */
const std::string &expect_success(gateway_session &session, const lan_client::answer &answered);

/** Sends one request; the rest as expect_success. */
std::string ask_one(gateway_session &session, lan_client::request wanted);

/** @return whether the gateway has refused with this text */
[[nodiscard]] bool is_refused_with(const lan_client::answer &answered, std::string_view text);

/**
 * Prints a verb's result: the sentence, or with --json the document, whose member "gateway" is
 * added. Returns exit_success.
 */
int print_result(gateway_session &session, std::string_view sentence,
                 const nlohmann::json &document);

/** @return a failure for an answer that is no `what`, quoting its beginning */
[[nodiscard]] failure malformed_answer(std::string_view what, std::string_view payload);

/**
 * Collects what the gateway reports, from before a request on. Of the reports that nobody has
 * taken it keeps the newest, at most max_kept_reports of them and max_kept_report_bytes.
 */
class report_subscription {
  public:
    using rule = std::function<bool(const lan_client::report &)>;

    /** Connects, unless the key of an activated gateway is missing. */
    explicit report_subscription(gateway_session &session);
    report_subscription(const report_subscription &) = delete;
    report_subscription &operator=(const report_subscription &) = delete;

    /**
     * Takes the first report that the rule is true of, waiting for it if need be. Throws a failure
     * when the connection is lost.
     *
     * @return nothing when none has come within the limit
     */
    std::optional<lan_client::report> next(const rule &wanted, std::chrono::milliseconds limit);

    /**
     * Sends a request that is accepted in silence; its outcome is a report that the rule is true
     * of. Throws a failure when the gateway refuses at once, stays silent, or reports a failure.
     */
    lan_client::report outcome(lan_client::request asked, const rule &wanted);

  private:
    // Shared with the connection, which the session keeps for longer.
    struct queue {
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
    std::shared_ptr<queue> queue_ = std::make_shared<queue>();
    lan_client::client &client_;
};

} // namespace engr_app
