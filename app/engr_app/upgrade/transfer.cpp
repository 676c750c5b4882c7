// Shows an upgrade, and says in words how it ended.
#include "upgrade/transfer.h"

#include "gateway/devices.h"
#include "gateway/request.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using namespace std::chrono_literals;
using lan_client::upgrade_answer;
using lan_client::upgrade_end;
using lan_client::upgrade_outcome;
using lan_client::upgrade_question;
using lan_client::upgrade_step;
using std::chrono::steady_clock;

constexpr auto tick_interval = 1s;
// A shorter pause is not worth a message.
constexpr auto silence_shown_after = 2s;
constexpr int polls_per_answer_time = 5;

std::string version_text(const std::string &version) {
    return version.empty() ? "an unknown version" : "version " + version;
}

// "3 of 60 s"
std::string passed_text(steady_clock::duration passed, steady_clock::duration limit) {
    return fmt::format("{} of {} s", std::chrono::floor<std::chrono::seconds>(passed).count(),
                       std::chrono::round<std::chrono::seconds>(limit).count());
}

} // namespace

upgrade_transfer::upgrade_transfer(gateway_session &session, const firmware_image &image,
                                   upgrade_order order)
    : session_(session), image_(image), order_(std::move(order)),
      client_(session.connect(true, events())), ticker_(session.loop()) {
    session_.loop().on_interrupt([this] {
        interrupted_ = true;
        client_.close();
    });
}

lan_client::client_events upgrade_transfer::events() {
    return {.on_report =
                [this](const lan_client::report &report) {
                    if (upgrade_) {
                        upgrade_->take(report);
                    }
                },
            .on_link =
                [this](const lan_client::link_change &change) {
                    connection_error_.reset();
                    if (change.state == lan_client::link_state::lost) {
                        connection_error_ = change.why;
                    }
                    if (upgrade_) {
                        upgrade_->take(change);
                    }
                },
            .on_traffic = {}};
}

lan_client::image_upgrade::callbacks upgrade_transfer::upgrade_events() {
    return {.on_step = [this](upgrade_step step) { enter(step); },
            .on_progress = [this] { show_progress(); },
            .on_answer = [this](const lan_client::answer &got) { session_.note_answer(got); },
            .on_end = [this](const upgrade_outcome &outcome) { outcome_ = outcome; }};
}

bool upgrade_transfer::read_image(std::string &bytes, uint64_t offset, std::size_t count) {
    try {
        image_.append_to(bytes, offset, count);
        return true;
    } catch (const failure &problem) {
        image_problem_ = problem;
        return false;
    }
}

void upgrade_transfer::enter(upgrade_step step) {
    if (step == upgrade_step::transferring) {
        session_.own_upgrade(true);
        bar_ = session_.out().bar(order_.cid.empty() ? "firmware" : "firmware of " + order_.cid,
                                  image_.size());
        tick();
    } else if (step == upgrade_step::starting) {
        end_bars();
        session_.out().notice(broken_off_text() + "; starting again, once");
        session_.own_upgrade(false); // until it is accepted again
    }
}

void upgrade_transfer::show_progress() {
    const std::optional<uint64_t> percent = upgrade_->installed_percent();
    if (!percent) {
        return bar_.show(upgrade_->taken_bytes());
    }
    if (!std::exchange(installing_, true)) {
        bar_.finish();
        install_bar_ = session_.out().bar("installing", lan_client::all_percent, "%");
    }
    install_bar_.show(std::min(*percent, lan_client::all_percent));
}

// What the bars show while nothing arrives.
std::string upgrade_transfer::waiting_text() const {
    const auto passed = steady_clock::now() - upgrade_->last_progress();
    const std::string time = passed_text(passed, upgrade_->patience());
    if (connection_error_) {
        return fmt::format("connection lost, trying again, {} ({})", time,
                           connection_error_->detail);
    }
    if (upgrade_->has_image()) {
        return "installing, " + time;
    }
    if (upgrade_->is_link_lost()) {
        return "connection was lost, asking what is installed, " + time;
    }
    return passed < silence_shown_after ? "" : "waiting for the gateway, " + time;
}

void upgrade_transfer::tick() {
    const std::string what = waiting_text();
    if (!what.empty()) {
        bar_.wait(what);
        install_bar_.wait(what);
    }
    ticker_.start(tick_interval, [this] { tick(); });
}

void upgrade_transfer::end_bars() {
    ticker_.cancel();
    install_bar_.finish();
    bar_.finish();
}

upgrade_answer upgrade_transfer::ask(lan_client::client &asked, const upgrade_question &question) {
    session_.require_key();
    // Shared, because it may still come when an interrupt has left this function.
    const auto got = std::make_shared<std::optional<upgrade_answer>>();
    lan_client::ask_upgrade_status(
        asked, question,
        [this](const lan_client::answer &answered) { session_.note_answer(answered); },
        [got](const upgrade_answer &answered) { *got = answered; });
    session_.loop().run_until([&got] { return got->has_value(); }, 24h);
    return **got;
}

upgrade_status upgrade_transfer::ask_status(bool dry) {
    before_ = ask(client_, {.order = order_, .announce = !dry, .check_device = true});
    if (before_.unknown_device) {
        throw failure("unknown_device",
                      fmt::format("{} knows no device {}; engr_app devices lists the devices",
                                  session_.chosen().name(), order_.cid));
    }
    if (!before_.status) {
        const std::string payload = expect_success(session_, before_.last);
        throw malformed_answer(before_.last.type == frame_type::dev_list ? "list of devices"
                                                                         : "answer to an "
                                                                           "announcement",
                               payload);
    }
    return *before_.status;
}

upgrade_status upgrade_transfer::carry_out() {
    upgrade_ = std::make_unique<lan_client::image_upgrade>(
        session_.loop(), client_, order_, session_.answer_time(),
        [this](std::string &bytes, uint64_t offset, std::size_t count) {
            return read_image(bytes, offset, count);
        },
        upgrade_events());
    upgrade_->start(before_);
    session_.loop().run_until([this] { return outcome_ || interrupted_; }, 24h);
    end_bars();
    if (interrupted_) {
        throw abandon("cancelled", "interrupted");
    }
    switch (outcome_->end) {
    case upgrade_end::installed:
        return *outcome_->status;
    case upgrade_end::refused:
        throw outcome_->last.failure
            ? explain(session_, outcome_->last)
            : refusal(session_, outcome_->last.type, outcome_->last.payload);
    case upgrade_end::broken:
        throw abandon_broken(*outcome_);
    case upgrade_end::stalled:
        throw abandon("timed_out", session_.chosen().name() +
                                       " did not ask for the next piece of the image in time");
    default:
        throw not_upgraded(*outcome_);
    }
}

std::string upgrade_transfer::position_text() const {
    return fmt::format("byte {} of {}", upgrade_->taken_bytes(), image_.size());
}

std::string upgrade_transfer::broken_off_text() const {
    const std::string name = session_.chosen().name();
    return upgrade_->is_link_lost()
               ? fmt::format("the connection to {} was lost at {}, which ended the upgrade", name,
                             position_text())
               : fmt::format("{} gave up at {}, probably because another app disconnected, "
                             "which ends an upgrade on a gateway",
                             name, position_text());
}

failure upgrade_transfer::not_upgraded(const upgrade_outcome &outcome) {
    const std::string name = session_.chosen().name();
    if (!outcome.status && upgrade_->has_image()) {
        return {
            "outcome_unknown",
            fmt::format("{} has the whole image, but {}: how the upgrade ends is not known; "
                        "engr_app upgrade --dry-run shows the installed version",
                        name,
                        upgrade_->is_link_lost() ? "can't be reached any more" : "is still busy")};
    }
    if (!outcome.status) {
        return {"outcome_unknown",
                fmt::format("the connection to {} was lost at {} and could not be restored; the "
                            "upgrade ends with it, and engr_app upgrade --dry-run shows the "
                            "installed version",
                            name, position_text())};
    }
    const std::string &version = outcome.status->version;
    const std::string still = fmt::format(
        "{} is {}", version_text(version),
        same_version(version, before_.status->version) ? "still installed" : "installed now");
    if (outcome.end == upgrade_end::not_installed) {
        return {"upgrade_failed", fmt::format("{} has received the whole image, but did not "
                                              "install it: {}; see its log (engr_app log)",
                                              name, still)};
    }
    if (outcome.end == upgrade_end::disconnected) {
        return {"connection_lost", fmt::format("{}: {}; try again", broken_off_text(), still)};
    }
    return {"upgrade_failed", fmt::format("{} gave up at {}: {}; its log may say why (engr_app "
                                          "log), or another app ended the upgrade by disconnecting",
                                          name, position_text(), still)};
}

// Asks over a new connection whether the gateway has ended the upgrade, too.
std::optional<upgrade_status> upgrade_transfer::ask_after_leaving() {
    interrupted_ = false;
    const auto began = steady_clock::now();
    std::optional<upgrade_status> status;
    lan_client::client &asked = session_.connect();
    session_.loop().on_interrupt([this, &asked] {
        interrupted_ = true;
        asked.close();
    });
    do {
        status = ask(asked, {.order = order_}).status;
        if (!status || !status->is_running_here()) {
            break;
        }
        session_.loop().run_until([this] { return interrupted_; },
                                  session_.answer_time() / polls_per_answer_time);
    } while (!interrupted_ && steady_clock::now() - began < session_.answer_time());
    return status;
}

failure upgrade_transfer::abandon_broken(const upgrade_outcome &outcome) {
    return image_problem_ ? abandon(image_problem_->kind().c_str(), image_problem_->what())
                          : abandon("bad_answer", "the gateway " + outcome.fault);
}

failure upgrade_transfer::abandon(const char *kind, const std::string &why) {
    const std::string what = fmt::format("{} at {}: ", why, position_text());
    upgrade_.reset();
    client_.close();
    session_.out().notice(why + "; closing the connection, which ends the upgrade, and asking what "
                                "is installed (Ctrl-C leaves without asking)");
    const std::optional<upgrade_status> status = ask_after_leaving();
    if (!status) {
        return {kind, what + "the connection is closed, which ends the upgrade on the gateway, "
                             "too, but it could not be asked"};
    }
    if (status->is_running_here()) {
        return {kind, what + "the connection is closed, but the gateway still says that it is "
                             "upgrading; engr_app upgrade --dry-run shows how it stands"};
    }
    const bool arrived = !same_version(before_.status->version, order_.version) &&
                         same_version(status->version, order_.version);
    return {kind, fmt::format("{}{}; {} is installed", what,
                              arrived ? "the gateway had gone too far to stop"
                                      : "the upgrade has ended on the gateway, too",
                              version_text(status->version))};
}

} // namespace engr_app
