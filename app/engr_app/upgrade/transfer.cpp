// The course of an upgrade: the gateway asks for pieces, the app answers; how it ends is asked.
#include "upgrade/transfer.h"

#include "base/json_text.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

// In times of an answer. A gateway waits 40 s for a piece and may write one for as long; it gives
// an installation 120 s. One that has lost its connection has ended the upgrade, and is only asked
// for what is installed.
constexpr int silence_limit = 12;
constexpr int settling_limit = 30;
constexpr int lost_limit = 12;
// Reports of an installation that are closer together belong to one that goes on, for an hour at
// most.
constexpr int report_gap_limit = 2;
constexpr int installing_limit = 720;
// Polls begin close together, since much ends at once.
constexpr int first_polls_per_answer_time = 100;
constexpr int polls_per_answer_time = 5;

// A gateway asks for one piece at a time; a service that begins anew may double a request.
constexpr std::size_t most_open_requests = 8;

constexpr auto tick_interval = 1s;
// A shorter pause is none.
constexpr auto silence_shown_after = 2s;

constexpr std::size_t offset_bytes = 4;
// The client leaves room for the padding of an encrypted payload.
constexpr uint64_t most_piece_bytes =
    lan_client::max_request_payload_bytes - lan_client::key_bytes - offset_bytes;

std::string version_text(const std::string &version) {
    return version.empty() ? "an unknown version" : "version " + version;
}

std::string seconds_text(std::chrono::steady_clock::duration time) {
    return std::to_string(std::chrono::floor<std::chrono::seconds>(time).count());
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
    return {.on_report = [this](const lan_client::report &report) { hear(report); },
            .on_link = [this](const lan_client::link_change &change) { hear(change); },
            .on_traffic = {}};
}

void upgrade_transfer::hear(const lan_client::report &report) {
    if (!report.readable) {
        return;
    }
    if (report.type == frame_type::download_firmware) {
        // One too many shows that they are more than can be answered.
        if (requests_.size() <= most_open_requests) {
            requests_.push_back(report.payload);
        }
    } else if (report.type == frame_type::dev_upgrade && report.ret != 0) {
        refusal_ = report.payload;
    } else if (report.type == frame_type::upgrade_percent_rpt && complete_) {
        hear_percent(report);
    } else if (report.type == frame_type::subdevice_update_rpt) {
        version_told_ = true;
    }
}

// The transfer itself is known more exactly from the requests for pieces. Only what grows is
// progress.
void upgrade_transfer::hear_percent(const lan_client::report &report) {
    const nlohmann::json body = parse_json(report.payload);
    const auto percent = member_count(body, "progress");
    if (!percent || member_text(body, "cid") != before_.target_id ||
        (installing_heard_ && *percent <= installed_percent_)) {
        return;
    }
    if (!installing_heard_) {
        bar_.finish();
        installing_ = session_.out().bar("installing", all_percent, "percent");
    }
    installing_heard_ = heard_ = clock::now();
    installed_percent_ = *percent;
    installing_.show(std::min(*percent, all_percent));
}

void upgrade_transfer::hear(const lan_client::link_change &change) {
    if (change.state == lan_client::link_state::connected) {
        no_connection_.reset();
        return;
    }
    no_connection_ = change.why;
    piece_unsent_ = false;
    link_lost_ = link_lost_ || started_;
}

// Something is there to be dealt with.
bool upgrade_transfer::is_due() const {
    return interrupted_ || link_lost_ || refusal_ || requests_.size() > most_open_requests ||
           (!requests_.empty() && !piece_unsent_);
}

// What the bars say while nothing comes.
std::string upgrade_transfer::awaited() const {
    const auto passed = clock::now() - heard_;
    const std::string time = seconds_text(passed) + " of " + seconds_text(patience_) + " s";
    if (no_connection_) {
        return "connection lost, trying again, " + time + " (" + no_connection_->detail + ")";
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
    const std::string what = awaited();
    if (!what.empty()) {
        bar_.wait(what);
        installing_.wait(what);
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

// The announcement for a device would rewrite the type of an upgrade under way, so the gateway is
// asked first.
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
        require_known_device(); // the version of one that is not known is empty, too
    }
    return status;
}

void upgrade_transfer::require_known_device() {
    const lan_client::answer list = session_.ask({device_list_request()}).front();
    const auto devices = says_no_devices(list) ? std::vector<device>{}
                                               : parse_device_list(expect_success(session_, list));
    if (std::ranges::find(devices, order_.cid, &device::id) == devices.end()) {
        throw failure("unknown_device", session_.chosen().name() + " knows no device " +
                                            order_.cid + "; engr_app devices lists the devices");
    }
}

upgrade_status upgrade_transfer::carry_out(const upgrade_status &before) {
    before_ = before;
    for (bool first = true;; first = false) {
        bring();
        const std::optional<upgrade_status> end = interrupted_ ? std::nullopt : settle();
        ticker_.cancel();
        installing_.finish();
        bar_.finish();
        if (interrupted_) {
            throw abandon("cancelled", "interrupted");
        }
        const bool renewed = complete_ || !same_version(before_.version, order_.version);
        if (end && renewed && same_version(end->version, order_.version)) {
            return *end;
        }
        if (!first || !given_up(end)) {
            throw not_upgraded(end);
        }
        session_.out().notice(session_.chosen().name() + " gave up at " + place() +
                              ", probably because another app disconnected, which ends an upgrade "
                              "on a gateway; starting again, once");
        session_.own_upgrade(false); // until it is accepted again
        announce();
    }
}

// The gateway is there and idle, but has asked for no more.
bool upgrade_transfer::given_up(const std::optional<upgrade_status> &end) const {
    return end && !end->running && !complete_ && !link_lost_;
}

void upgrade_transfer::announce() {
    const lan_client::answer answered = session_.ask({announce_request(order_)}).front();
    if (!interrupted_) {
        expect_success(session_, answered);
    }
}

// Another app's question for versions withdraws the announcement; then it is made once more.
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

// From the start until the gateway has all, has refused or given up, or the connection is lost. A
// refusal may still follow the acceptance.
void upgrade_transfer::bring() {
    pieces_ = piece_requests(image_.size(), {before_.target_id, gateway_id_});
    requests_.clear();
    taken_ = 0;
    piece_unsent_ = false;
    started_ = true;
    start();
    heard_ = clock::now();
    patience_ = silence_limit * session_.answer_time();
    bar_ = session_.out().bar(order_.cid.empty() ? "firmware" : "firmware of " + order_.cid,
                              image_.size());
    tick();
    try {
        transfer();
    } catch (const failure &unsent) {
        throw abandon(unsent.kind().c_str(), unsent.what());
    }
    if (refusal_) {
        throw refusal(session_, frame_type::dev_upgrade, *refusal_);
    }
}

void upgrade_transfer::transfer() {
    while (!interrupted_ && !refusal_ && !complete_) {
        if (requests_.size() > most_open_requests) {
            throw failure("bad_answer",
                          session_.chosen().name() + " asks for many pieces without taking them");
        }
        if (!requests_.empty() && !piece_unsent_) {
            answer_request();
        } else if (link_lost_) {
            return;
        } else {
            wait();
            if (is_due()) {
                continue;
            }
            // A gateway that can't use a piece says nothing.
            const std::optional<upgrade_status> status = poll();
            if (status && !status->running_here() && !is_due()) {
                return;
            }
            if (clock::now() - heard_ > patience_) {
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
    const wanted_piece wanted = pieces_.next(request);
    heard_ = clock::now();
    complete_ = wanted.bytes == 0;
    taken_ = wanted.offset;
    bar_.show(taken_);
    if (!complete_ && !link_lost_) {
        send(wanted);
    }
}

void upgrade_transfer::send(const wanted_piece &wanted) {
    const auto count = static_cast<std::size_t>(std::min(wanted.bytes, most_piece_bytes));
    std::string payload;
    payload.reserve(offset_bytes + count);
    for (int shift = 24; shift >= 0; shift -= 8) {
        payload += static_cast<char>(wanted.offset >> shift & 0xFF);
    }
    image_.append_to(payload, wanted.offset, count);
    pieces_.sent(wanted, count);
    piece_unsent_ = true;
    client_.tell({.type = frame_type::download_firmware,
                  .payload = std::move(payload),
                  .timeout = silence_limit * session_.answer_time(),
                  .on_sent = [this](std::size_t sent_bytes, std::size_t frame_bytes) {
                      piece_unsent_ = sent_bytes < frame_bytes;
                      heard_ = clock::now();
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
    return installing_heard_ &&
           clock::now() - *installing_heard_ < report_gap_limit * session_.answer_time();
}

// How the gateway stands after the end, asked over a new connection if need be; nothing when it
// can't be learned.
std::optional<upgrade_status> upgrade_transfer::settle() {
    const auto began = clock::now();
    heard_ = began;
    patience_ = (complete_ ? settling_limit : lost_limit) * session_.answer_time();
    milliseconds pause = session_.answer_time() / first_polls_per_answer_time;
    while (!interrupted_) {
        version_told_ = false;
        const std::optional<upgrade_status> status = poll();
        const bool arrived = status && same_version(status->version, order_.version);
        const bool unknown = status && status->running && !order_.cid.empty();
        if (status && !unknown && !status->running_here() && (arrived || !still_installing())) {
            return status;
        }
        const auto now = clock::now();
        if (now - heard_ > patience_ || now - began > installing_limit * session_.answer_time()) {
            return std::nullopt;
        }
        session_.loop().run_until([this] { return interrupted_ || version_told_; }, pause);
        pause =
            std::min(2 * pause + milliseconds(1), session_.answer_time() / polls_per_answer_time);
    }
    return std::nullopt;
}

std::string upgrade_transfer::place() const {
    return "byte " + std::to_string(taken_) + " of " + std::to_string(image_.size());
}

failure upgrade_transfer::not_upgraded(const std::optional<upgrade_status> &end) {
    const std::string name = session_.chosen().name();
    if (!end) {
        return {"outcome_unknown",
                complete_ ? name + " has the whole image, but " +
                                (link_lost_ ? "can't be reached any more" : "is still busy") +
                                ": how the upgrade ends is not known; engr_app upgrade --dry-run "
                                "shows the installed version"
                          : "the connection to " + name + " was lost at " + place() +
                                " and can't be made again; the upgrade ends with it, and "
                                "engr_app upgrade --dry-run shows the installed version"};
    }
    const std::string still =
        version_text(end->version) +
        (same_version(end->version, before_.version) ? " is still installed" : " is installed now");
    if (complete_) {
        return {"upgrade_failed", name + " has received the whole image, but did not install it: " +
                                      still + "; see its log (engr_app log)"};
    }
    if (link_lost_) {
        return {"connection_lost", "the connection to " + name + " was lost at " + place() +
                                       ", which ended the upgrade: " + still + "; try again"};
    }
    return {"upgrade_failed", name + " gave up at " + place() + ": " + still +
                                  "; its log may say why (engr_app log), or another app ended the "
                                  "upgrade by disconnecting"};
}

// Whether the gateway has ended the upgrade as well is asked over a new connection.
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
        if (!status || !status->running_here()) {
            break;
        }
        session_.loop().run_until([this] { return interrupted_; },
                                  session_.answer_time() / polls_per_answer_time);
    } while (!interrupted_ && clock::now() - began < session_.answer_time());
    return status;
}

failure upgrade_transfer::abandon(const char *kind, const std::string &why) {
    ticker_.cancel();
    installing_.finish();
    bar_.finish();
    client_.close();
    session_.out().notice(why + "; closing the connection, which ends the upgrade, and asking what "
                                "is installed (Ctrl-C leaves without asking)");
    const std::optional<upgrade_status> status = ask_after_leaving();
    const std::string what = why + " at " + place() + ": ";
    if (!status) {
        return {kind, what +
                          "the connection is closed, which ends the upgrade on the gateway, too, "
                          "but it could not be asked"};
    }
    if (status->running_here()) {
        return {kind, what + "the connection is closed, but the gateway still says that it is "
                             "upgrading; engr_app upgrade --dry-run shows how it stands"};
    }
    const bool arrived = !same_version(before_.version, order_.version) &&
                         same_version(status->version, order_.version);
    return {kind, what +
                      (arrived ? "the gateway had gone too far to stop; "
                               : "the upgrade has ended on the gateway, too; ") +
                      version_text(status->version) + " is installed"};
}

} // namespace engr_app
