// join: opens the gateway for new devices and shows those that join.
#include "base/counted.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

namespace frame_type = lan_client::frame_type;

constexpr int64_t default_seconds = 60;
constexpr int64_t greatest_seconds = 24 * 3600;
constexpr int64_t greatest_kind = 252; // gateways add 3 and keep a byte

struct join_arguments {
    int64_t seconds = default_seconds;
    int64_t kind = 0;
    bool detach = false;
    consent asked;
};

lan_client::request join_request(const join_arguments &given, int64_t seconds) {
    return json_request(frame_type::permit_join, {{"type", given.kind}, {"time", seconds}});
}

std::size_t show_joined(gateway_session &session, const lan_client::report &report) {
    console &out = session.out();
    const std::vector<device> joined = parse_device_list(report.payload);
    for (const device &one : joined) {
        if (out.json()) {
            out.json_line(
                {{"gateway", session.chosen().label()}, {"cid", one.id}, {"pid", one.product_id}});
        } else {
            out.line(fmt::format("{} joined (product {})", device_text(session, one.id),
                                 one.product_id));
        }
    }
    return joined.size();
}

// Shows what joins until the time is over or the user interrupts; returns the number of devices.
std::size_t show_until(gateway_session &session, report_subscription &reports,
                       std::chrono::seconds time, const bool &interrupted) {
    const auto start = steady_clock::now();
    progress_bar bar =
        session.out().bar("joining is open", static_cast<uint64_t>(time.count()), "s");
    std::size_t joined = 0;
    for (auto passed = 0ms; passed < time && !interrupted;
         passed = std::chrono::ceil<std::chrono::milliseconds>(steady_clock::now() - start)) {
        bar.show(static_cast<uint64_t>(passed / 1s));
        const auto report = reports.next(
            [](const lan_client::report &candidate) {
                return candidate.type == frame_type::sub_dev_bind_rpt && candidate.readable;
            },
            std::min<std::chrono::milliseconds>(1s, time - passed));
        joined += report ? show_joined(session, *report) : 0;
    }
    if (!interrupted) {
        bar.show(static_cast<uint64_t>(time.count()));
    }
    return joined;
}

int open_joining(gateway_session &session, join_arguments &given) {
    given.asked.require(session, fmt::format("Let devices join for {} s", given.seconds));
    bool interrupted = false;
    report_subscription reports(session);
    ask_one(session, join_request(given, given.seconds));

    const std::string opened =
        fmt::format("joining is open on {} for {} s", session.chosen().name(), given.seconds);
    if (given.detach) {
        return print_result(session, opened, {{"open", true}, {"seconds", given.seconds}});
    }
    console &out = session.out();
    out.notice(opened + "; Ctrl-C closes it");
    session.loop().on_interrupt([&interrupted] { interrupted = true; });
    const std::size_t joined =
        show_until(session, reports, std::chrono::seconds(given.seconds), interrupted);
    if (interrupted) {
        ask_one(session, join_request(given, 0));
    }
    if (out.json()) {
        out.json_line({{"gateway", session.chosen().label()}, {"open", false}, {"joined", joined}});
    } else {
        out.line(fmt::format("{} joined; joining is closed{}", counted(joined, "device"),
                             interrupted ? ", as you asked" : " again"));
    }
    return interrupted ? exit_interrupted : exit_success;
}

int close_joining(gateway_session &session, join_arguments &given) {
    ask_one(session, join_request(given, 0));
    return print_result(session, fmt::format("joining is closed on {}", session.chosen().name()),
                        {{"open", false}});
}

void declare_kind(CLI::App &parser, join_arguments &given) {
    parser
        .add_option("--kind", given.kind,
                    "Kind of devices, a number of the gateway's own (default 0)")
        ->type_name("N")
        ->check(CLI::Range(int64_t{0}, greatest_kind));
}

verb_work declare_join_open(CLI::App &parser) {
    const auto given = std::make_shared<join_arguments>();
    parser.add_option("--seconds", given->seconds, "How long (default 60)")
        ->type_name("SECONDS")
        ->check(CLI::Range(int64_t{1}, greatest_seconds));
    declare_kind(parser, *given);
    parser.add_flag("--detach", given->detach, "Only open it, and don't wait for devices");
    given->asked.declare(parser, asked_runs::with_all);
    return with_arguments(given, open_joining);
}

verb_work declare_join_close(CLI::App &parser) {
    const auto given = std::make_shared<join_arguments>();
    declare_kind(parser, *given);
    return with_arguments(given, close_joining);
}

} // namespace

verb_work declare_join(CLI::App &parser) {
    parser.footer("With --json each device is one line, and so is the end.\n\n"
                  "Examples:\n"
                  "  engr_app join open --seconds 120\n"
                  "  engr_app join open --detach\n"
                  "  engr_app join close");
    return add_subverbs(parser, {{"open", "let devices join and show them", declare_join_open},
                                 {"close", "let no more devices join", declare_join_close}});
}

} // namespace engr_app
