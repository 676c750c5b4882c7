// Finding a gateway and talking to it.
#include "gateway/session.h"

#include "files/known_gateways.h"
#include "files/user_paths.h"
#include "gateway/explain.h"
#include "gateway/finding.h"
#include "gateway/stay.h"
#include "lan_client/frame_types.h"
#include "lan_client/gateway_list.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <utility>

#include <fmt/format.h>

namespace engr_app {
namespace {

using namespace std::chrono_literals;
using lan_client::announcement;

// Gateways announce themselves every 5 s, so each has done so by then.
constexpr std::chrono::milliseconds default_listen_time = lan_client::discovery_period + 1s;
constexpr std::chrono::milliseconds default_answer_time = 5s;
// A gateway that is where it was last answers in milliseconds.
constexpr std::chrono::milliseconds longest_check_of_place = 2s;

std::chrono::milliseconds given_or(double seconds, std::chrono::milliseconds otherwise) {
    return seconds > 0 ? std::chrono::milliseconds(static_cast<long>(seconds * 1000)) : otherwise;
}

} // namespace

gateway_session::gateway_session(const global_options &options, console &out,
                                 std::shared_ptr<session_recorder> recorder)
    : options_(options), out_(out), recorder_(std::move(recorder)) {}

gateway_session::gateway_session(const global_options &options, console &out,
                                 std::shared_ptr<session_recorder> recorder, gateway target,
                                 std::string file_mark)
    : gateway_session(options, out, std::move(recorder)) {
    chosen_ = std::move(target);
    file_mark_ = std::move(file_mark);
}

std::chrono::milliseconds gateway_session::discovery_time() const {
    return given_or(options_.listen_s, default_listen_time);
}

std::chrono::milliseconds gateway_session::answer_time() const {
    return given_or(options_.timeout_s, default_answer_time);
}

void gateway_session::end_on_interrupt() {
    if (!std::exchange(ends_on_interrupt_, true)) {
        loop_.on_interrupt([this] {
            interrupted_ = true;
            throw interrupted();
        });
    }
}

void gateway_session::require_key() {
    if (!has_needed_key()) {
        throw missing_key(chosen());
    }
}

void gateway_session::warn_of_built_in_key() {
    if (!std::exchange(warned_of_built_in_key_, true)) {
        out_.notice(deactivated_sentence(chosen()));
    }
}

lan_client::traffic_observer gateway_session::frame_observer() {
    if (!options_.verbose) {
        return {};
    }
    return [this](const lan_client::traffic &frame) { out_.trace(format_frame(frame)); };
}

lan_client::traffic_observer gateway_session::datagram_observer() {
    if (!recorder_) {
        return frame_observer();
    }
    return [this, show = frame_observer()](const lan_client::traffic &frame) {
        if (show) {
            show(frame);
        }
        recorder_->take_datagram(frame);
    };
}

discovery_result gateway_session::discover(std::chrono::milliseconds limit,
                                           const announcement_rule &enough) {
    return listen({options_.interface_name, limit, enough, {}});
}

discovery_result gateway_session::listen(const listening &how) {
    end_on_interrupt();
    discovery_result result{
        .interface_name = how.interface_name, .limit = how.limit, .announcements = {}};
    lan_client::gateway_list heard;
    bool stop = false;
    const auto on_datagram = [&](const lan_client::parsed_datagram &datagram) {
        result.unreadable += datagram.kind == lan_client::datagram_kind::unreadable ? 1 : 0;
        if (datagram.kind != lan_client::datagram_kind::announcement) {
            return;
        }
        const announcement &announced = datagram.content;
        const bool awaited = how.enough && how.enough(announced);
        if (heard.note(announced, awaited) && how.on_new) {
            how.on_new(announced);
        }
        stop = stop || awaited;
    };
    lan_client::discovery_listener listener(loop_, on_datagram, datagram_observer());
    if (const lan_client::error problem = listener.open(how.interface_name)) {
        throw failure(lan_client::error_name(problem.kind),
                      fmt::format("can't listen for gateways: {}", problem.detail));
    }
    loop_.run_until([&stop] { return stop; }, how.limit);
    result.announcements = heard.all();
    std::ranges::sort(result.announcements, {},
                      [](const announcement &one) { return std::pair(one.id, one.address); });
    keep_heard(out_, result.announcements);
    return result;
}

const gateway &gateway_session::chosen() {
    if (chosen_) {
        return *chosen_;
    }
    end_on_interrupt();
    const std::string named = options_.gateways.empty() ? "" : options_.gateways.front();
    chosen_ = find_gateway(*this, named);
    if (chosen_->remembered && !has_needed_key()) {
        chosen_ = listen_for(*this, named); // it may have been deactivated since
    }
    if (!chosen_->announced && !options_.keys.empty() &&
        !options_.keys.contains(chosen_->place())) {
        chosen_->announced = recall_with_key(*this, chosen_->address);
        if (!chosen_->announced) {
            chosen_announcement(); // the keys are known by ids
        }
    }
    return *chosen_;
}

const std::optional<announcement> &gateway_session::chosen_announcement() {
    chosen();
    if (!chosen_->announced || chosen_->remembered) {
        out_.progress(fmt::format("listening for the announcement of {} on {} ...", chosen_->name(),
                                  interfaces_text(options_.interface_name)));
        const std::string &address = chosen_->address;
        const discovery_result result =
            discover(discovery_time(),
                     [&](const announcement &announced) { return announced.address == address; });
        if (const announcement *announced = result.find_address(address)) {
            chosen_->announced = *announced;
            chosen_->remembered = false;
        }
    }
    return chosen_->announced;
}

const std::string &gateway_session::local_key() {
    const gateway &target = chosen();
    auto found = options_.keys.find(target.label());
    if (found == options_.keys.end()) {
        found = options_.keys.find(target.place());
    }
    return found == options_.keys.end() ? options_.local_key : found->second;
}

bool gateway_session::has_needed_key() {
    const gateway &target = chosen();
    return !local_key().empty() || !target.announced || !target.announced->activated;
}

std::string gateway_session::output_path(const std::string &path) const {
    if (file_mark_.empty()) {
        return path;
    }
    std::filesystem::path marked(path);
    const std::string extension = marked.extension();
    marked.replace_filename(fmt::format("{}-{}{}", marked.stem().string(), file_mark_, extension));
    return marked;
}

const names_file &gateway_session::names() {
    if (!names_) {
        const bool given = !options_.names_file.empty();
        const std::string path = given ? options_.names_file : names_path();
        names_ = given || std::filesystem::exists(path) ? names_file(path) : names_file();
    }
    return *names_;
}

// Every app knows the built-in key. Whoever answers with it, perhaps in the gateway's place, must
// not make an app that was given a better one use it.
std::vector<lan_client::aes_key> gateway_session::usable_keys() {
    const auto local = lan_client::aes_key::from_text(local_key());
    if (!local) {
        return {lan_client::unactivated_key()};
    }
    if (!options_.accept_deactivated) {
        return {*local};
    }
    return {*local, lan_client::unactivated_key()};
}

lan_client::client_events gateway_session::monitored_events() {
    return {.on_report =
                [this](const lan_client::report &report) {
                    if (report.under_built_in_key) {
                        warn_of_built_in_key();
                    }
                    monitor_.on_report(report);
                    if (verb_events_.on_report) {
                        verb_events_.on_report(report);
                    }
                },
            .on_link =
                [this](const lan_client::link_change &change) {
                    connected_ = change.state == lan_client::link_state::connected;
                    if (!connected_) {
                        monitor_.forget(); // the upgrade has ended with the connection
                    }
                    if (verb_events_.on_link) {
                        verb_events_.on_link(change);
                    }
                },
            .on_traffic = frame_observer(),
            .on_wire = recorder_ ? recorder_->connection_observer(local_key())
                                 : lan_client::wire_observer()};
}

void gateway_session::open_client(bool reconnect, std::chrono::milliseconds connect_timeout) {
    const gateway &target = chosen();
    lan_client::client_options wanted;
    wanted.address = target.address;
    wanted.port = target.port;
    wanted.interface_name = options_.interface_name;
    wanted.connect_timeout = connect_timeout;
    wanted.request_timeout = answer_time();
    wanted.reconnect = reconnect;
    wanted.keys = usable_keys();
    connected_ = false;
    client_ = std::make_unique<lan_client::client>(loop_, std::move(wanted), monitored_events());
    client_->open();
}

// The gateway may have another address than when it was heard last, and its old one may be
// another gateway's.
void gateway_session::leave_outdated_place() {
    const auto got = std::make_shared<std::optional<lan_client::answer>>();
    client_->ask({.type = lan_client::frame_type::keepalive,
                  .timeout = std::min(answer_time(), longest_check_of_place)},
                 [got](const lan_client::answer &outcome) { *got = outcome; });
    loop_.run_until([&got] { return got->has_value(); }, std::chrono::hours(24));
    const lan_client::error_kind failed = (*got)->failure.kind;
    const bool answered = failed == lan_client::error_kind::none;
    if (answered && !has_other_hardware(*this, *chosen_)) {
        return;
    }
    if (failed == lan_client::error_kind::table_full) {
        return client_.reset(); // it is there, but has closed the connection
    }
    out_.notice(fmt::format(
        "gateway {} {} {}, where it was heard last: listening for it anew", chosen_->announced->id,
        answered ? "is no longer the device at" : "does not answer at", chosen_->place()));
    client_.reset();
    chosen_ = listen_for(*this, chosen_->announced->id);
}

lan_client::client &gateway_session::connect(bool reconnect, lan_client::client_events events) {
    end_on_interrupt();
    if (chosen().remembered && !std::exchange(place_checked_, true)) {
        verb_events_ = {};
        open_client(reconnect, std::min(answer_time(), longest_check_of_place));
        leave_outdated_place();
    } else {
        client_.reset();
    }
    verb_events_ = std::move(events);
    if (!client_) {
        open_client(reconnect, answer_time());
    }
    return *client_;
}

// A gateway that was named by its address may be activated without our knowing. What is asked here
// is answered under the key that it uses, and an answer under another one is a failure.
void gateway_session::require_shown_key(const std::vector<lan_client::request> &requests) {
    const bool secret = std::ranges::any_of(requests, [](const lan_client::request &one) {
        return one.type == lan_client::frame_type::token_bind ||
               one.type == lan_client::frame_type::wifi_modify;
    });
    if (!secret || !local_key().empty()) {
        return;
    }
    const auto shown = ask({{.type = lan_client::frame_type::get_channel}}).front();
    if (shown.failure) {
        throw explain(*this, shown);
    }
}

std::vector<lan_client::answer> gateway_session::ask(std::vector<lan_client::request> requests,
                                                     bool need_key) {
    if (need_key) {
        require_key();
    }
    require_shown_key(requests);
    lan_client::client &client = client_ ? *client_ : connect();
    // Shared, because answers may still come after this function has given up on them.
    struct progress {
        std::vector<std::optional<lan_client::answer>> answers;
        std::size_t missing;
        lan_client::error first_failure{};
    };
    const auto now = std::make_shared<progress>(progress{
        .answers = decltype(progress::answers)(requests.size()), .missing = requests.size()});
    std::vector<lan_client::answer> answers;
    for (std::size_t index = 0; index < requests.size(); ++index) {
        answers.push_back({.type = requests[index].type});
        client.ask(std::move(requests[index]),
                   [this, now, index](const lan_client::answer &outcome) {
                       now->answers[index] = outcome;
                       monitor_.on_answer(outcome);
                       --now->missing;
                       if (outcome.failure && !now->first_failure) {
                           now->first_failure = outcome.failure;
                       }
                   });
    }
    // The client itself bounds every wait; where one request failed the others are not waited for.
    loop_.run_until([&now] { return now->missing == 0 || now->first_failure; },
                    std::chrono::hours(24));
    for (std::size_t index = 0; index < answers.size(); ++index) {
        answers[index].failure = now->first_failure;
        answers[index] = now->answers[index].value_or(answers[index]);
    }
    return answers;
}

void gateway_session::leave() {
    verb_events_ = {};
    if (client_ && connected_ && chosen_) {
        keep_hardware(*this, *chosen_);
    }
    if (interrupted_ && !monitor_.is_running()) {
        return; // whoever wants to go is not to wait for an answer
    }
    if (client_ && connected_ && !upgrade_is_own_ && has_needed_key()) {
        stay_while_upgrading(*this, *client_, monitor_);
    }
}

void gateway_session::own_upgrade(bool own) {
    upgrade_is_own_ = own;
    monitor_.forget();
}

} // namespace engr_app
