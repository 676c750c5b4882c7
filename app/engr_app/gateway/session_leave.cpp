// The end of a session. A gateway ends a running upgrade when any connection to it ends, so a verb
// that notices one stays until it is over.
#include "gateway/session.h"

#include "gateway/request.h"
#include "gateway/upgrade_status.h"
#include "lan_client/frame_types.h"

#include <memory>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::answer;

// An agent gives an installation 120 s. Longer without any progress, and it is stuck or lying.
constexpr auto stall_limit = 10min;

// A gateway refuses every device command while its own firmware is upgraded, and this one, which
// has no data points, at any time. Unlike an announcement it changes nothing.
lan_client::request empty_device_command() {
    return json_request(lan_client::frame_type::tp_cmd, nlohmann::json::object());
}

std::string upgrade_name(const upgrade_monitor &monitor) {
    return monitor.id().empty() ? "an upgrade" : "an upgrade of " + monitor.id();
}

} // namespace

std::optional<answer> gateway_session::ask_unless(lan_client::request wanted,
                                                  const std::function<bool()> &stop) {
    // Shared, because the answer may come after this function has given up on it.
    const auto got = std::make_shared<std::optional<answer>>();
    client_->ask(std::move(wanted), [got](const answer &outcome) { *got = outcome; });
    // The client itself bounds the wait.
    loop_.run_until([&] { return got->has_value() || stop(); }, 24h);
    if (*got) {
        monitor_.hear(**got);
    }
    return *got;
}

void gateway_session::look_again(const std::function<bool()> &stop) {
    const bool refused_before = monitor_.refuses_commands();
    const auto refused = ask_unless(empty_device_command(), stop);
    if (!refused || refused->failure || refused->payload == "device is upgrading...") {
        return;
    }
    if (refused_before) {
        return monitor_.forget();
    }
    // Only an announcement shows whether a device is being upgraded.
    ask_unless(upgrade_status_request({}), stop);
}

void gateway_session::stay(const std::function<bool()> &stop) {
    const std::string name = upgrade_name(monitor_);
    out_.notice(name + " is under way on " + chosen().name() +
                ", and the end of any connection ends it: staying connected until it is over "
                "(Ctrl-C leaves now and so ends the upgrade)");
    while (monitor_.running() && !stop()) {
        if (upgrade_monitor::clock::now() - monitor_.moved() > stall_limit) {
            return out_.notice(name + " has made no progress for 10 minutes; leaving");
        }
        const auto report = monitor_.heard();
        // While reports come more often than this nothing has to be asked.
        loop_.run_until([&] { return !monitor_.running() || stop(); }, answer_time());
        if (monitor_.running() && !stop() && monitor_.heard() == report) {
            look_again(stop);
        }
    }
    if (linked_) {
        out_.notice(monitor_.running() ? "left, which ends " + name : name + " is over");
    }
}

void gateway_session::leave() {
    verb_events_ = {};
    if (!client_ || !linked_ || upgrade_is_own_ || !key_at_hand()) {
        return;
    }
    const auto interrupted = std::make_shared<bool>(false);
    loop_.on_interrupt([interrupted] { *interrupted = true; });
    const auto stop = [&] { return *interrupted || !linked_; };
    if (!monitor_.running()) {
        ask_unless(empty_device_command(), stop);
    }
    if (monitor_.running() && !stop()) {
        stay(stop);
    }
}

void gateway_session::own_upgrade(bool own) {
    upgrade_is_own_ = own;
    monitor_.forget();
}

} // namespace engr_app
