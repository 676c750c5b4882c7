// Watching an upgrade that another app has started, until it is over.
#include "gateway/stay.h"

#include "gateway/answers.h"
#include "gateway/session.h"

#include <memory>

#include <fmt/format.h>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::answer;

// An agent gives an installation 120 s. Longer without any progress, and it is stuck or lying.
constexpr auto stall_limit = 10min;
// While an image is transferred reports come more often.
constexpr auto usual_report_gap = 1s;

class upgrade_watcher {
  public:
    upgrade_watcher(gateway_session &session, lan_client::client &client,
                    lan_client::upgrade_monitor &monitor)
        : session_(session), client_(client), monitor_(monitor) {
        session_.loop().on_interrupt([interrupted = interrupted_] { *interrupted = true; });
    }

    void watch() {
        if (!monitor_.is_running()) {
            ask(lan_client::upgrade_probe_request());
        } else if (lan_client::upgrade_monitor::clock::now() - monitor_.last_sign() >
                   usual_report_gap) {
            poll(); // the last sign may have been that of its end
        }
        if (goes_on()) {
            wait();
        }
    }

  private:
    [[nodiscard]] bool is_stopped() const { return *interrupted_ || !session_.is_connected(); }
    [[nodiscard]] bool goes_on() const { return monitor_.is_running() && !is_stopped(); }

    // Nothing when it was stopped before the answer came.
    std::optional<answer> ask(lan_client::request wanted) {
        // Shared, because the answer may come after this function has given up on it.
        const auto got = std::make_shared<std::optional<answer>>();
        client_.ask(std::move(wanted), [got](const answer &outcome) { *got = outcome; });
        // The client itself bounds the wait.
        session_.loop().run_until([&] { return got->has_value() || is_stopped(); }, 24h);
        if (*got) {
            monitor_.on_answer(**got);
        }
        return *got;
    }

    void poll() {
        const bool refused_before = monitor_.refuses_commands();
        const auto refused = ask(lan_client::upgrade_probe_request());
        if (!refused || refused->failure || refuses_while_upgrading(*refused)) {
            return;
        }
        if (refused_before) {
            return monitor_.forget();
        }
        // Only an announcement shows whether a device is being upgraded.
        ask(upgrade_status_request({}));
    }

    void wait() {
        console &out = session_.out();
        const std::string name =
            monitor_.id().empty() ? "an upgrade" : "an upgrade of " + monitor_.id();
        out.notice(fmt::format("{} is under way on {}, and the end of any connection ends it: "
                               "staying connected until it is over (Ctrl-C leaves now and so ends "
                               "the upgrade)",
                               name, session_.chosen().name()));
        while (goes_on()) {
            if (lan_client::upgrade_monitor::clock::now() - monitor_.last_progress() >
                stall_limit) {
                return out.notice(name + " has made no progress for 10 minutes; leaving");
            }
            const auto last_sign = monitor_.last_sign();
            // While reports come more often than this nothing has to be asked.
            session_.loop().run_until([&] { return !goes_on(); }, session_.answer_time());
            if (goes_on() && monitor_.last_sign() == last_sign) {
                poll();
            }
        }
        if (session_.is_connected()) {
            out.notice(monitor_.is_running() ? "left, which ends " + name : name + " is over");
        }
    }

    gateway_session &session_;
    lan_client::client &client_;
    lan_client::upgrade_monitor &monitor_;
    // Shared with the loop, which lives longer.
    std::shared_ptr<bool> interrupted_ = std::make_shared<bool>(false);
};

} // namespace

void stay_while_upgrading(gateway_session &session, lan_client::client &client,
                          lan_client::upgrade_monitor &monitor) {
    upgrade_watcher(session, client, monitor).watch();
}

} // namespace engr_app
