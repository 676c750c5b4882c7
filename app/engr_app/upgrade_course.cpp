// The course of an upgrade: the gateway asks for pieces, the app answers; how it ends is asked.
#include "upgrade_course.h"

#include "device_list.h"
#include "json_text.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"
#include "question.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

namespace frame_type = lan_client::frame_type;
using std::chrono::milliseconds;

// In times of an answer. A gateway waits 40 s for a piece and may write one for as long; it gives
// an installation 120 s.
constexpr int silence_limit = 12;
constexpr int settling_limit = 30;
// Reports of an installation that are closer together belong to one that goes on.
constexpr int report_gap_limit = 2;
// Polls begin close together, since much ends at once.
constexpr int first_polls_per_answer_time = 100;
constexpr int polls_per_answer_time = 5;

// Requests for what it had already; more are no retries.
constexpr std::uint32_t most_repeats = 1000;

constexpr std::size_t offset_bytes = 4;
// The client leaves room for the padding of an encrypted payload.
constexpr std::uint64_t most_piece_bytes =
    lan_client::max_request_payload_bytes - lan_client::key_bytes - offset_bytes;

constexpr std::uint64_t all_percent = 100;

std::string version_text(const std::string &version) {
    return version.empty() ? "an unknown version" : "version " + version;
}

} // namespace

upgrade_course::upgrade_course(session &present, const firmware_image &image, upgrade_order order)
    : present_(present), image_(image), order_(std::move(order)),
      client_(present.connect(true, events())) {
    present_.loop().on_interrupt([this] {
        interrupted_ = true;
        client_.close();
    });
}

lan_client::client_events upgrade_course::events() {
    return {.on_report = [this](const lan_client::report &told) { hear(told); },
            .on_link =
                [this](const lan_client::link_change &change) {
                    link_lost_ =
                        link_lost_ || (started_ && change.state == lan_client::link_state::lost);
                },
            .on_traffic = {}};
}

void upgrade_course::hear(const lan_client::report &told) {
    if (!told.readable) {
        return;
    }
    if (told.type == frame_type::download_firmware) {
        requests_.push_back(told.payload);
    } else if (told.type == frame_type::dev_upgrade && told.ret != 0) {
        refusal_ = told.payload;
    } else if (told.type == frame_type::upgrade_percent_rpt && complete_) {
        hear_percent(told);
    } else if (told.type == frame_type::subdevice_update_rpt) {
        version_told_ = true;
    }
}

// The transfer itself is known more exactly from the requests for pieces.
void upgrade_course::hear_percent(const lan_client::report &told) {
    const nlohmann::json body = parse_json(told.payload);
    const std::string percent = member_text(body, "progress");
    if (member_text(body, "cid") != before_.target_id || !body["progress"].is_number_unsigned()) {
        return;
    }
    if (!installing_heard_) {
        installing_ = present_.out().bar("installing", all_percent, "percent");
    }
    installing_heard_ = clock::now();
    installing_.show(std::min(body["progress"].get<std::uint64_t>(), all_percent));
}

// Until something is there to be dealt with.
void upgrade_course::wait(milliseconds limit) {
    present_.loop().run_until(
        [this] { return interrupted_ || link_lost_ || refusal_ || !requests_.empty(); }, limit);
}

upgrade_standing upgrade_course::ask_standing(lan_client::request wanted) {
    const lan_client::answer answered = present_.ask({std::move(wanted)}).front();
    if (interrupted_) {
        throw failure("cancelled", "interrupted; no upgrade was started");
    }
    upgrade_standing standing = parse_standing(order_, agreed(present_, answered));
    if (order_.cid.empty() || !standing.version.empty()) {
        return standing;
    }
    // So is the version of a device that the gateway does not know.
    const lan_client::answer list = present_.ask({device_list_request()}).front();
    const auto devices =
        says_no_devices(list) ? std::vector<device>{} : parse_device_list(agreed(present_, list));
    if (std::ranges::find(devices, order_.cid, &device::id) == devices.end()) {
        throw failure("unknown_device", present_.chosen().name() + " knows no device " +
                                            order_.cid + "; engr_app devices lists the devices");
    }
    return standing;
}

upgrade_standing upgrade_course::carry_out(const upgrade_standing &before) {
    before_ = before;
    start();
    try {
        transfer();
    } catch (const failure &unsent) {
        throw abandon(unsent.kind().c_str(), unsent.what());
    }
    if (refusal_) {
        throw refusal(present_, frame_type::dev_upgrade, *refusal_);
    }
    const std::optional<upgrade_standing> end = interrupted_ ? std::nullopt : settle();
    installing_.finish();
    if (interrupted_) {
        throw abandon("cancelled", "interrupted");
    }
    const bool renewed = complete_ || !same_version(before_.version, order_.version);
    if (end && renewed && same_version(end->version, order_.version)) {
        return *end;
    }
    throw not_upgraded(end);
}

// A refusal may still follow the acceptance.
void upgrade_course::start() {
    started_ = true;
    const lan_client::answer answered =
        present_.ask({start_request(order_, before_.target_id)}).front();
    if (!interrupted_) {
        agreed(present_, answered);
    }
}

// Ends when the gateway has all, has refused or given up, or when the connection is lost.
void upgrade_course::transfer() {
    progress_bar bar = present_.out().bar(
        order_.cid.empty() ? "firmware" : "firmware of " + order_.cid, image_.size());
    auto heard = clock::now();
    while (!interrupted_ && !refusal_ && !complete_) {
        if (!requests_.empty()) {
            answer(requests_.front(), bar);
            requests_.pop_front();
            heard = clock::now();
            continue;
        }
        if (link_lost_) {
            return;
        }
        wait(present_.answer_time());
        if (interrupted_ || link_lost_ || refusal_ || !requests_.empty()) {
            continue;
        }
        // A gateway that can't use a piece says nothing.
        const std::optional<upgrade_standing> standing = poll();
        if (standing && !standing->running_here() && requests_.empty()) {
            return;
        }
        if (clock::now() - heard > silence_limit * present_.answer_time()) {
            throw failure("timed_out", present_.chosen().name() + " did not ask for the next "
                                                                  "piece of the image in time");
        }
    }
}

void upgrade_course::answer(const std::string &request, progress_bar &bar) {
    const auto wanted = parse_wanted_piece(request, image_.size());
    if (!wanted) {
        throw failure("bad_answer", present_.chosen().name() +
                                        " asks for a piece that is not in the image: " + request);
    }
    repeats_ = wanted->offset > taken_ ? 0 : repeats_ + 1;
    if (repeats_ > most_repeats) {
        throw failure("bad_answer",
                      present_.chosen().name() + " asks for the same piece again and again");
    }
    complete_ = wanted->bytes == 0;
    taken_ = complete_ ? image_.size() : wanted->offset;
    bar.show(taken_);
    if (!complete_ && !link_lost_) {
        send(*wanted);
    }
}

void upgrade_course::send(const wanted_piece &wanted) {
    const auto count = static_cast<std::size_t>(std::min(wanted.bytes, most_piece_bytes));
    std::string payload;
    payload.reserve(offset_bytes + count);
    for (int shift = 24; shift >= 0; shift -= 8) {
        payload += static_cast<char>(wanted.offset >> shift & 0xFF);
    }
    image_.append_to(payload, wanted.offset, count);
    client_.tell({.type = frame_type::download_firmware,
                  .payload = std::move(payload),
                  .timeout = silence_limit * present_.answer_time()});
}

std::optional<upgrade_standing> upgrade_course::poll() {
    const lan_client::answer answered = present_.ask({announce_request(order_)}).front();
    return answered.failure || answered.ret != 0
               ? std::nullopt
               : std::optional(parse_standing(order_, answered.payload));
}

bool upgrade_course::still_installing() const {
    return installing_heard_ &&
           clock::now() - *installing_heard_ < report_gap_limit * present_.answer_time();
}

// How the gateway stands after the end, asked over a new connection if need be; nothing when it
// can't be learned.
std::optional<upgrade_standing> upgrade_course::settle() {
    const auto began = clock::now();
    milliseconds pause = present_.answer_time() / first_polls_per_answer_time;
    while (!interrupted_) {
        version_told_ = false;
        const std::optional<upgrade_standing> standing = poll();
        const bool arrived = standing && same_version(standing->version, order_.version);
        if (standing && !standing->running_here() && (arrived || !still_installing())) {
            return standing;
        }
        const auto since = std::max(began, installing_heard_.value_or(began));
        if (clock::now() - since > settling_limit * present_.answer_time()) {
            return std::nullopt;
        }
        present_.loop().run_until([this] { return interrupted_ || version_told_; }, pause);
        pause =
            std::min(2 * pause + milliseconds(1), present_.answer_time() / polls_per_answer_time);
    }
    return std::nullopt;
}

std::string upgrade_course::place() const {
    return "byte " + std::to_string(taken_) + " of " + std::to_string(image_.size());
}

failure upgrade_course::not_upgraded(const std::optional<upgrade_standing> &end) {
    const std::string name = present_.chosen().name();
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
    return {"upgrade_failed",
            name + " gave up at " + place() + ": " + still + "; see its log (engr_app log)"};
}

// Closing the connection ends the upgrade on the gateway, too; whether it has is asked over a new
// one.
failure upgrade_course::abandon(const char *kind, const std::string &why) {
    client_.close();
    interrupted_ = false;
    const auto began = clock::now();
    std::optional<upgrade_standing> standing;
    lan_client::client &asked = present_.connect();
    present_.loop().on_interrupt([this, &asked] {
        interrupted_ = true;
        asked.close();
    });
    do {
        standing = poll();
        if (!standing || !standing->running_here()) {
            break;
        }
        present_.loop().run_until([this] { return interrupted_; },
                                  present_.answer_time() / polls_per_answer_time);
    } while (!interrupted_ && clock::now() - began < present_.answer_time());
    const std::string what = why + " at " + place() + ": ";
    if (!standing) {
        return {kind, what +
                          "the connection is closed, which ends the upgrade on the gateway, too, "
                          "but it could not be asked"};
    }
    if (standing->running_here()) {
        return {kind, what + "the connection is closed, but the gateway still says that it is "
                             "upgrading; engr_app upgrade --dry-run shows how it stands"};
    }
    const bool arrived = !same_version(before_.version, order_.version) &&
                         same_version(standing->version, order_.version);
    return {kind, what +
                      (arrived ? "the gateway had gone too far to stop; "
                               : "the upgrade has ended on the gateway, too; ") +
                      version_text(standing->version) + " is installed"};
}

} // namespace engr_app
