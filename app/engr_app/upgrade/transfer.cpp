// An upgrade step by step: the gateway requests pieces of the image, the app answers, and finally
// asks for the outcome.
#include "upgrade/transfer.h"

#include "base/json_text.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

// Multiples of the answer timeout. A gateway waits 40 s for a piece and may take as long to write
// one; an installation may take 120 s. A lost connection ends the upgrade on the gateway, which
// then is only asked for the installed version.
constexpr int silence_limit = 12;
constexpr int settling_limit = 30;
constexpr int lost_limit = 12;
// An installation that reports progress in shorter intervals continues, for an hour at most.
constexpr int report_gap_limit = 2;
constexpr int installing_limit = 720;
// The first polls follow each other quickly: many upgrades end at once.
constexpr int first_polls_per_answer_time = 100;
constexpr int polls_per_answer_time = 5;

// A gateway requests one piece at a time; a service that restarts may repeat a request.
constexpr std::size_t most_open_requests = 8;

constexpr auto tick_interval = 1s;
// A shorter pause is not worth a message.
constexpr auto silence_shown_after = 2s;

constexpr std::size_t offset_bytes = 4;
// The client leaves room for the padding of an encrypted payload.
constexpr uint64_t most_piece_bytes =
    lan_client::max_request_payload_bytes - lan_client::key_bytes - offset_bytes;

std::string version_text(const std::string &version) {
    return version.empty() ? "an unknown version" : "version " + version;
}

// "3 of 60 s"
std::string passed_text(std::chrono::steady_clock::duration passed,
                        std::chrono::steady_clock::duration limit) {
    return fmt::format("{} of {} s", std::chrono::floor<std::chrono::seconds>(passed).count(),
                       std::chrono::round<std::chrono::seconds>(limit).count());
}

} // namespace

upgrade_transfer::upgrade_transfer(gateway_session &session, const firmware_image &image,
                                   upgrade_order order)
    : session_(session), image_(image), order_(std::move(order)),
      client_(session.connect(true, events())), ticker_(session.loop()), pieces_(0, {}) {
    session_.loop().on_interrupt([this] {
        interrupted_ = true;
        client_.close();
    });
}

lan_client::client_events upgrade_transfer::events() {
    return {.on_report = [this](const lan_client::report &report) { on_report(report); },
            .on_link = [this](const lan_client::link_change &change) { on_link(change); },
            .on_traffic = {}};
}

void upgrade_transfer::on_report(const lan_client::report &report) {
    if (!report.readable) {
        return;
    }
    if (report.type == frame_type::download_firmware) {
        // One more than the limit is kept, so that the excess is noticed.
        if (requests_.size() <= most_open_requests) {
            requests_.push_back(report.payload);
        }
    } else if (report.type == frame_type::dev_upgrade && report.ret != 0) {
        refusal_ = report.payload;
    } else if (report.type == frame_type::upgrade_percent_rpt && complete_) {
        on_install_progress(report);
    } else if (report.type == frame_type::subdevice_update_rpt) {
        version_reported_ = true;
    }
}

// Used once the transfer is complete: until then the requests for pieces are more exact. Only a
// greater number counts as progress.
void upgrade_transfer::on_install_progress(const lan_client::report &report) {
    const nlohmann::json body = parse_json(report.payload);
    const auto percent = member_count(body, "progress");
    if (!percent || member_text(body, "cid") != before_.target_id ||
        (last_install_report_ && *percent <= install_percent_)) {
        return;
    }
    if (!last_install_report_) {
        bar_.finish();
        install_bar_ = session_.out().bar("installing", lan_client::all_percent, "%");
    }
    last_install_report_ = last_progress_ = clock::now();
    install_percent_ = *percent;
    install_bar_.show(std::min(*percent, lan_client::all_percent));
}

void upgrade_transfer::on_link(const lan_client::link_change &change) {
    if (change.state == lan_client::link_state::connected) {
        connection_error_.reset();
        return;
    }
    connection_error_ = change.why;
    is_sending_piece_ = false;
    link_lost_ = link_lost_ || started_;
}

// Whether an event waits to be handled.
bool upgrade_transfer::is_due() const {
    return interrupted_ || link_lost_ || refusal_ || requests_.size() > most_open_requests ||
           (!requests_.empty() && !is_sending_piece_);
}

// What the bars show while nothing arrives.
std::string upgrade_transfer::waiting_text() const {
    const auto passed = clock::now() - last_progress_;
    const std::string time = passed_text(passed, progress_timeout_);
    if (connection_error_) {
        return fmt::format("connection lost, trying again, {} ({})", time,
                           connection_error_->detail);
    }
    if (complete_) {
        return "installing, " + time;
    }
    if (link_lost_) {
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

upgrade_status upgrade_transfer::expect_status(const upgrade_order &of,
                                               lan_client::request wanted) {
    const lan_client::answer answered = session_.ask({std::move(wanted)}).front();
    if (interrupted_) {
        throw failure("cancelled", "interrupted; no upgrade was started");
    }
    return parse_upgrade_status(of, expect_success(session_, answered));
}

// An announcement for a device would change the type of an upgrade under way, so the status is
// asked for first.
upgrade_status upgrade_transfer::ask_status(bool dry) {
    upgrade_order announced = order_;
    announced.image_bytes = dry ? 0 : order_.image_bytes;
    if (order_.cid.empty()) {
        upgrade_status own = expect_status(order_, announce_request(announced));
        gateway_id_ = own.target_id;
        return own;
    }
    upgrade_status own = expect_status({}, upgrade_status_request({}));
    gateway_id_ = own.target_id;
    if (own.running) {
        own.target_id = order_.cid;
        own.version.clear();
        return own;
    }
    upgrade_status status = expect_status(order_, announce_request(announced));
    if (status.version.empty()) {
        require_known_device(); // the version of an unknown device is empty, too
    }
    return status;
}

void upgrade_transfer::require_known_device() {
    const lan_client::answer list = session_.ask({device_list_request()}).front();
    const auto devices = says_no_devices(list) ? std::vector<device>{}
                                               : parse_device_list(expect_success(session_, list));
    if (std::ranges::find(devices, order_.cid, &device::id) == devices.end()) {
        throw failure("unknown_device",
                      fmt::format("{} knows no device {}; engr_app devices lists the devices",
                                  session_.chosen().name(), order_.cid));
    }
}

upgrade_status upgrade_transfer::carry_out(const upgrade_status &before) {
    before_ = before;
    for (bool first = true;; first = false) {
        transfer_image();
        const std::optional<upgrade_status> end = interrupted_ ? std::nullopt : await_outcome();
        ticker_.cancel();
        install_bar_.finish();
        bar_.finish();
        if (interrupted_) {
            throw abandon("cancelled", "interrupted");
        }
        const bool renewed = complete_ || !same_version(before_.version, order_.version);
        if (end && renewed && same_version(end->version, order_.version)) {
            return *end;
        }
        if (!first || !has_given_up(end)) {
            throw not_upgraded(end);
        }
        session_.out().notice(fmt::format(
            "{} gave up at {}, probably because another app disconnected, which ends an "
            "upgrade on a gateway; starting again, once",
            session_.chosen().name(), position_text()));
        session_.own_upgrade(false); // until it is accepted again
        announce();
    }
}

// The gateway is idle, but has not requested the rest of the image.
bool upgrade_transfer::has_given_up(const std::optional<upgrade_status> &end) const {
    return end && !end->running && !complete_ && !link_lost_;
}

void upgrade_transfer::announce() {
    const lan_client::answer answered = session_.ask({announce_request(order_)}).front();
    if (!interrupted_) {
        expect_success(session_, answered);
    }
}

// Another app that asks for versions withdraws the announcement; then it is repeated.
void upgrade_transfer::start() {
    const auto ask = [this] {
        return session_.ask({start_request(order_, before_.target_id)}).front();
    };
    lan_client::answer answered = ask();
    if (!interrupted_ && answered.ret != 0 && answered.payload == "file_size is zero") {
        announce();
        answered = ask();
    }
    if (!interrupted_) {
        expect_success(session_, answered);
    }
    session_.own_upgrade(true);
}

// Ends when the gateway has the whole image, has refused or given up, or the connection is lost. A
// refusal may follow the acceptance.
void upgrade_transfer::transfer_image() {
    pieces_ = lan_client::piece_requests(image_.size(), {before_.target_id, gateway_id_});
    requests_.clear();
    transferred_bytes_ = 0;
    is_sending_piece_ = false;
    started_ = true;
    start();
    last_progress_ = clock::now();
    progress_timeout_ = silence_limit * session_.answer_time();
    bar_ = session_.out().bar(order_.cid.empty() ? "firmware" : "firmware of " + order_.cid,
                              image_.size());
    tick();
    try {
        answer_requests();
    } catch (const failure &error) {
        throw abandon(error.kind().c_str(), error.what());
    }
    if (refusal_) {
        throw refusal(session_, frame_type::dev_upgrade, *refusal_);
    }
}

void upgrade_transfer::answer_requests() {
    while (!interrupted_ && !refusal_ && !complete_) {
        if (requests_.size() > most_open_requests) {
            throw failure("bad_answer",
                          session_.chosen().name() + " asks for many pieces without taking them");
        }
        if (!requests_.empty() && !is_sending_piece_) {
            answer_request();
        } else if (link_lost_) {
            return;
        } else {
            wait();
            if (is_due()) {
                continue;
            }
            // A gateway that can't use a piece stays silent.
            const std::optional<upgrade_status> status = poll();
            if (status && !status->is_running_here() && !is_due()) {
                return;
            }
            if (clock::now() - last_progress_ > progress_timeout_) {
                throw failure("timed_out", session_.chosen().name() +
                                               " did not ask for the next piece of the image in "
                                               "time");
            }
        }
    }
}

void upgrade_transfer::wait() {
    session_.loop().run_until([this] { return is_due(); }, session_.answer_time());
}

void upgrade_transfer::answer_request() {
    const std::string request = std::move(requests_.front());
    requests_.pop_front();
    lan_client::piece_request wanted;
    const std::string fault = pieces_.next(request, wanted);
    if (!fault.empty()) {
        throw failure("bad_answer", "the gateway " + fault);
    }
    last_progress_ = clock::now();
    complete_ = wanted.bytes == 0;
    transferred_bytes_ = wanted.offset;
    bar_.show(transferred_bytes_);
    if (!complete_ && !link_lost_) {
        send(wanted);
    }
}

void upgrade_transfer::send(const lan_client::piece_request &wanted) {
    const auto count = static_cast<std::size_t>(std::min(wanted.bytes, most_piece_bytes));
    std::string payload;
    payload.reserve(offset_bytes + count);
    for (int shift = 24; shift >= 0; shift -= 8) {
        payload += static_cast<char>(wanted.offset >> shift & 0xFF);
    }
    image_.append_to(payload, wanted.offset, count);
    pieces_.sent(wanted, count);
    is_sending_piece_ = true;
    client_.tell({.type = frame_type::download_firmware,
                  .payload = std::move(payload),
                  .timeout = silence_limit * session_.answer_time(),
                  .on_sent = [this](std::size_t sent_bytes, std::size_t frame_bytes) {
                      is_sending_piece_ = sent_bytes < frame_bytes;
                      last_progress_ = clock::now();
                  }});
}

std::optional<upgrade_status> upgrade_transfer::poll() {
    const auto ask = [this](const upgrade_order &of) {
        const lan_client::answer answered = session_.ask({upgrade_status_request(of)}).front();
        return answered.failure || answered.ret != 0
                   ? std::nullopt
                   : std::optional(parse_upgrade_status(of, answered.payload));
    };
    std::optional<upgrade_status> own = ask({});
    if (!own || order_.cid.empty()) {
        return own;
    }
    if (own->running) {
        own->target_id = order_.cid;
        own->version.clear();
        return own;
    }
    return ask(order_);
}

bool upgrade_transfer::still_installing() const {
    return last_install_report_ &&
           clock::now() - *last_install_report_ < report_gap_limit * session_.answer_time();
}

// The status after the transfer, over a new connection if necessary; nothing when the gateway does
// not tell it.
std::optional<upgrade_status> upgrade_transfer::await_outcome() {
    const auto began = clock::now();
    last_progress_ = began;
    progress_timeout_ = (complete_ ? settling_limit : lost_limit) * session_.answer_time();
    milliseconds pause = session_.answer_time() / first_polls_per_answer_time;
    while (!interrupted_) {
        version_reported_ = false;
        const std::optional<upgrade_status> status = poll();
        const bool arrived = status && same_version(status->version, order_.version);
        const bool unknown = status && status->running && !order_.cid.empty();
        if (status && !unknown && !status->is_running_here() && (arrived || !still_installing())) {
            return status;
        }
        const auto now = clock::now();
        if (now - last_progress_ > progress_timeout_ ||
            now - began > installing_limit * session_.answer_time()) {
            return std::nullopt;
        }
        session_.loop().run_until([this] { return interrupted_ || version_reported_; }, pause);
        pause =
            std::min(2 * pause + milliseconds(1), session_.answer_time() / polls_per_answer_time);
    }
    return std::nullopt;
}

std::string upgrade_transfer::position_text() const {
    return fmt::format("byte {} of {}", transferred_bytes_, image_.size());
}

failure upgrade_transfer::not_upgraded(const std::optional<upgrade_status> &end) {
    const std::string name = session_.chosen().name();
    if (!end && complete_) {
        return {"outcome_unknown",
                fmt::format("{} has the whole image, but {}: how the upgrade ends is not known; "
                            "engr_app upgrade --dry-run shows the installed version",
                            name, link_lost_ ? "can't be reached any more" : "is still busy")};
    }
    if (!end) {
        return {"outcome_unknown",
                fmt::format("the connection to {} was lost at {} and could not be restored; the "
                            "upgrade ends with it, and engr_app upgrade --dry-run shows the "
                            "installed version",
                            name, position_text())};
    }
    const std::string still = fmt::format(
        "{} is {}", version_text(end->version),
        same_version(end->version, before_.version) ? "still installed" : "installed now");
    if (complete_) {
        return {"upgrade_failed", fmt::format("{} has received the whole image, but did not "
                                              "install it: {}; see its log (engr_app log)",
                                              name, still)};
    }
    if (link_lost_) {
        return {"connection_lost", fmt::format("the connection to {} was lost at {}, which ended "
                                               "the upgrade: {}; try again",
                                               name, position_text(), still)};
    }
    return {"upgrade_failed", fmt::format("{} gave up at {}: {}; its log may say why (engr_app "
                                          "log), or another app ended the upgrade by disconnecting",
                                          name, position_text(), still)};
}

// Asks over a new connection whether the gateway has ended the upgrade, too.
std::optional<upgrade_status> upgrade_transfer::ask_after_leaving() {
    interrupted_ = false;
    const auto began = clock::now();
    std::optional<upgrade_status> status;
    lan_client::client &asked = session_.connect();
    session_.loop().on_interrupt([this, &asked] {
        interrupted_ = true;
        asked.close();
    });
    do {
        status = poll();
        if (!status || !status->is_running_here()) {
            break;
        }
        session_.loop().run_until([this] { return interrupted_; },
                                  session_.answer_time() / polls_per_answer_time);
    } while (!interrupted_ && clock::now() - began < session_.answer_time());
    return status;
}

failure upgrade_transfer::abandon(const char *kind, const std::string &why) {
    ticker_.cancel();
    install_bar_.finish();
    bar_.finish();
    client_.close();
    session_.out().notice(why + "; closing the connection, which ends the upgrade, and asking what "
                                "is installed (Ctrl-C leaves without asking)");
    const std::optional<upgrade_status> status = ask_after_leaving();
    const std::string what = fmt::format("{} at {}: ", why, position_text());
    if (!status) {
        return {kind, what + "the connection is closed, which ends the upgrade on the gateway, "
                             "too, but it could not be asked"};
    }
    if (status->is_running_here()) {
        return {kind, what + "the connection is closed, but the gateway still says that it is "
                             "upgrading; engr_app upgrade --dry-run shows how it stands"};
    }
    const bool arrived = !same_version(before_.version, order_.version) &&
                         same_version(status->version, order_.version);
    return {kind, fmt::format("{}{}; {} is installed", what,
                              arrived ? "the gateway had gone too far to stop"
                                      : "the upgrade has ended on the gateway, too",
                              version_text(status->version))};
}

} // namespace engr_app
