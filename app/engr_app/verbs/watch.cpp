// watch: what the gateway reports, as it happens.
#include "base/failure.h"
#include "gateway/devices.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::link_change;
using lan_client::link_state;

struct watch_arguments {
    double for_s = 0;   // 0: without end
    uint64_t count = 0; // 0: without end
};

class watcher {
  public:
    watcher(gateway_session &session, const watch_arguments &arguments)
        : session_(session), out_(session.out()), arguments_(arguments) {}

    int watch() {
        // The first answer shows that the gateway has room for this app and that the key is right.
        session_.connect(true, {.on_report = [this](const auto &report) { show(report); },
                                .on_link = [this](const auto &change) { show(change); },
                                .on_traffic = {}});
        expect_success(session_, session_.ask({device_list_request()}).front());
        established_ = true;
        session_.loop().on_interrupt([this] { stopped_ = true; });
        out_.notice(fmt::format("watching {}, Ctrl-C ends it", session_.chosen().name()));
        const auto limit =
            arguments_.for_s > 0
                ? std::chrono::milliseconds(static_cast<long>(arguments_.for_s * 1000))
                : std::chrono::milliseconds(std::chrono::years(10));
        session_.loop().run_until([this] { return stopped_ || enough(); }, limit);
        return stopped_ ? exit_interrupted : exit_success;
    }

  private:
    [[nodiscard]] bool enough() const { return arguments_.count > 0 && shown_ >= arguments_.count; }

    void show(const lan_client::report &report) {
        if (enough()) {
            return;
        }
        ++shown_;
        if (out_.json()) {
            out_.json_line(report_json(report));
        } else {
            out_.line(fmt::format("{}  {}", time_text(), format_report(report)));
        }
    }

    void show(const link_change &change) {
        if (!established_) {
            return; // a first connection that fails ends the program with its own sentence
        }
        if (change.state == link_state::connected) {
            out_.notice(
                fmt::format("{}  reconnected to {}", time_text(), session_.chosen().name()));
            lost_ = false;
            return;
        }
        const std::string what =
            lost_ ? "still no connection" : "lost the connection: reports may be missed from here";
        out_.notice(fmt::format("{}  {} ({}), next attempt in {} ms", time_text(), what,
                                change.why.detail, change.pause.count()));
        lost_ = true;
    }

    gateway_session &session_;
    console &out_;
    const watch_arguments &arguments_;
    bool stopped_ = false;
    bool established_ = false;
    bool lost_ = false;
    uint64_t shown_ = 0;
};

} // namespace

verb_work declare_watch(CLI::App &parser) {
    const auto given = std::make_shared<watch_arguments>();
    parser.add_option("--for", given->for_s, "End after this time")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
    parser.add_option("--count", given->count, "End after this many reports")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    parser.footer("Shows data points, bound and unbound devices, deactivation and upgrades. "
                  "When the\ngateway restarts it connects again and says so. With --json each "
                  "report is one line.\nLeaving ends an upgrade that runs on the gateway, as the "
                  "end of any connection does, so\nit stays until one that it has seen is over; "
                  "a second Ctrl-C leaves at once.\n\n"
                  "Examples:\n"
                  "  engr_app watch\n"
                  "  engr_app watch --gateway 127.0.0.1 --for 60 --json");
    return [given](gateway_session &session) { return watcher(session, *given).watch(); };
}

} // namespace engr_app
