// watch: what the gateway reports, as it happens.
#include "base/failure.h"
#include "gateway/devices.h"
#include "gateway/events.h"
#include "gateway/format.h"
#include "gateway/request.h"
#include "lan_client/json.h"
#include "verbs/verb.h"

#include <algorithm>
#include <map>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using lan_client::link_change;
using lan_client::link_state;
using lan_client::member_count;
using nlohmann::json;

struct watch_arguments {
    double for_s = 0;                 // 0: without end
    uint64_t count = 0;               // 0: without end
    std::vector<std::string> devices; // ids or names; none: all
    bool raw = false;
};

class watcher {
  public:
    watcher(gateway_session &session, const watch_arguments &arguments)
        : session_(session), out_(session.out()),
          arguments_(arguments), names_{[this](const std::string &id) {
                                            return device_text(session_, id);
                                        },
                                        [this](const std::string &id, const std::string &number) {
                                            return session_.names().data_point_name(products_[id],
                                                                                    number);
                                        }} {
        for (const std::string &device : arguments.devices) {
            wanted_ids_.push_back(session.names().device_id(device));
        }
    }

    int watch() {
        // The first answer shows that the gateway has room for this app and that the key is right.
        session_.connect(true, {.on_report = [this](const auto &report) { take(report); },
                                .on_link = [this](const auto &change) { show(change); },
                                .on_traffic = {}});
        note_products(expect_success(session_, session_.ask({device_list_request()}).front()));
        established_ = true;
        session_.loop().on_interrupt([this] { stopped_ = true; });
        out_.notice(fmt::format("watching {}, Ctrl-C ends it", session_.chosen().name()));
        const auto limit =
            arguments_.for_s > 0
                ? std::chrono::milliseconds(static_cast<long>(arguments_.for_s * 1000))
                : std::chrono::milliseconds(std::chrono::years(10));
        session_.loop().run_until([this] { return stopped_ || enough(); }, limit);
        upgrade_bar_.finish();
        if (stopped_) {
            out_.notice("stopped watching " + session_.chosen().name());
        }
        return stopped_ ? exit_interrupted : exit_success;
    }

  private:
    [[nodiscard]] bool enough() const { return arguments_.count > 0 && shown_ >= arguments_.count; }

    [[nodiscard]] std::string time_stamp() const {
        return out_.is_on_terminal() ? local_time_text() : time_text();
    }

    // For the names of data points.
    void note_products(const std::string &device_list) {
        if (session_.names().names_data_points()) {
            for (const device &one : parse_device_list(device_list)) {
                products_[one.id] = one.product_id;
            }
        }
    }

    [[nodiscard]] bool is_wanted(const json &event) const {
        if (wanted_ids_.empty()) {
            return true;
        }
        return std::ranges::any_of(devices_of_event(event), [this](const std::string &id) {
            return std::ranges::find(wanted_ids_, id) != wanted_ids_.end();
        });
    }

    void take(const lan_client::report &report) {
        const json event = event_of(report);
        if (enough() || !is_wanted(event)) {
            return;
        }
        if (arguments_.raw) {
            show(out_.json() ? raw_report_json(report) : json(), raw_report_text(report));
        } else if (event["event"] == "upgrade_progress") {
            show_progress(event);
        } else {
            upgrade_bar_.finish();
            show(event, event["event"] == "other" ? raw_report_text(report)
                                                  : event_sentence(event, names_));
        }
    }

    // A gateway reports each piece of an image; what is the same percentage is not worth a line.
    void show_progress(const json &event) {
        const std::string sentence = event_sentence(event, names_);
        if (sentence == last_progress_) {
            return;
        }
        last_progress_ = sentence;
        const auto percent = member_count(event, "percent");
        if (!percent || out_.json() || !out_.is_on_terminal()) {
            return show(event, sentence);
        }
        const std::string label = sentence.substr(0, sentence.rfind(':'));
        if (label != upgrade_label_ || *percent < upgrade_percent_) {
            upgrade_bar_ = out_.bar(label, lan_client::all_percent, "%");
            upgrade_label_ = label;
        }
        upgrade_percent_ = std::min(*percent, lan_client::all_percent);
        upgrade_bar_.show(upgrade_percent_);
        ++shown_;
    }

    void show(json line, const std::string &sentence) {
        ++shown_;
        if (out_.json()) {
            line["time"] = time_text();
            line["gateway"] = session_.chosen().label();
            out_.json_line(line);
        } else {
            out_.line(fmt::format("{}  {}", time_stamp(), sentence));
        }
    }

    void show(const link_change &change) {
        if (!established_) {
            return; // a first connection that fails ends the program with its own sentence
        }
        upgrade_bar_.finish();
        upgrade_label_.clear();
        if (change.state == link_state::connected) {
            out_.notice(
                fmt::format("{}  reconnected to {}", time_stamp(), session_.chosen().name()));
            lost_ = false;
            return;
        }
        const std::string what =
            lost_ ? "still no connection" : "lost the connection: reports may be missed from here";
        out_.notice(fmt::format("{}  {} ({}), next attempt in {} ms", time_stamp(), what,
                                change.why.detail, change.pause.count()));
        lost_ = true;
    }

    gateway_session &session_;
    console &out_;
    const watch_arguments &arguments_;
    event_naming names_;
    std::vector<std::string> wanted_ids_;
    std::map<std::string, std::string> products_; // of devices
    bool stopped_ = false;
    bool established_ = false;
    bool lost_ = false;
    uint64_t shown_ = 0;
    std::string last_progress_;
    progress_bar upgrade_bar_;
    std::string upgrade_label_; // of the bar
    uint64_t upgrade_percent_ = 0;
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
    parser
        .add_option("--device", given->devices,
                    "Only reports of this device, by its id or your name; may be given several "
                    "times")
        ->type_name("CID")
        ->expected(1)
        ->take_all();
    parser.add_flag("--raw", given->raw, "Reports as they come, with their frame types");
    parser.footer("Shows data points, bound and unbound devices, deactivation and upgrades; of an "
                  "upgrade a\nline for each percent, or on a terminal a bar. When the gateway "
                  "restarts it connects again\nand says so. With --json each report is one line "
                  "{\"event\", \"time\", \"gateway\", ...}.\n\n"
                  "Leaving ends an upgrade that runs on the gateway, as the end of any connection "
                  "does, so it\nstays until one that it has seen is over; a second Ctrl-C leaves "
                  "at once.\n\n"
                  "Examples:\n"
                  "  engr_app watch\n"
                  "  engr_app watch --device a4c1380001000001\n"
                  "  engr_app watch --gateway 127.0.0.1 --for 60 --json");
    return [given](gateway_session &session) { return watcher(session, *given).watch(); };
}

} // namespace engr_app
