// The steps of an upgrade: start, pieces, outcome.
#include "lan_client/image_upgrade.h"

#include "lan_client/devices.h"
#include "lan_client/frame_types.h"
#include "lan_client/json.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

using std::chrono::milliseconds;

// Multiples of the answer time. A gateway waits 40 s for a piece and may take as long to write
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

// The questions before an upgrade, one after the other.
class upgrade_inquiry : public std::enable_shared_from_this<upgrade_inquiry> {
  public:
    using completion = std::function<void(const upgrade_answer &)>;

    upgrade_inquiry(client &to, upgrade_question question, answer_observer seen, completion done)
        : to_(to), question_(std::move(question)), seen_(std::move(seen)), done_(std::move(done)) {}

    void begin() {
        const bool announced = question_.order.cid.empty() && question_.announce;
        ask(announced ? question_.order : upgrade_order(), announced,
            &upgrade_inquiry::take_gateway);
    }

  private:
    // Goes on with a status; without one the result is complete.
    void ask(const upgrade_order &of, bool announced, void (upgrade_inquiry::*next)()) {
        to_.ask(announced ? announce_request(of) : upgrade_status_request(of),
                [self = shared_from_this(), of, next](const answer &got) {
                    self->note(got);
                    if (!got.failure && got.ret == 0) {
                        self->result_.status = read_upgrade_status(of, got.payload);
                    }
                    if (self->result_.status) {
                        (*self.*next)();
                    } else {
                        self->done_(self->result_);
                    }
                });
    }

    void note(const answer &got) {
        result_.last = got;
        if (seen_) {
            seen_(got);
        }
    }

    void take_gateway() {
        result_.gateway_id = result_.status->target_id;
        if (question_.order.cid.empty()) {
            return done_(result_);
        }
        if (result_.status->running) {
            result_.status->target_id = question_.order.cid;
            result_.status->version.clear();
            return done_(result_);
        }
        result_.status.reset();
        ask(question_.order, question_.announce, &upgrade_inquiry::take_device);
    }

    void take_device() {
        if (!result_.status->version.empty() || !question_.check_device) {
            return done_(result_);
        }
        // The version of an unknown device is empty, too.
        to_.ask(device_list_request(),
                [self = shared_from_this()](const answer &got) { self->take_list(got); });
    }

    void take_list(const answer &got) {
        note(got);
        std::optional<std::vector<device>> devices;
        if (says_no_devices(got)) {
            devices.emplace();
        } else if (!got.failure && got.ret == 0) {
            devices = read_device_list(got.payload);
        }
        result_.unknown_device = devices && std::ranges::find(*devices, question_.order.cid,
                                                              &device::id) == devices->end();
        if (!devices || result_.unknown_device) {
            result_.status.reset();
        }
        done_(result_);
    }

    client &to_;
    upgrade_question question_;
    answer_observer seen_;
    completion done_;
    upgrade_answer result_;
};

} // namespace

void ask_upgrade_status(client &to, upgrade_question question, answer_observer seen,
                        std::function<void(const upgrade_answer &)> done) {
    std::make_shared<upgrade_inquiry>(to, std::move(question), std::move(seen), std::move(done))
        ->begin();
}

struct image_upgrade::state : std::enable_shared_from_this<image_upgrade::state> {
    state(event_loop &loop, client &peer, upgrade_order wanted, milliseconds answers,
          image_sender::source source, callbacks called)
        : to(peer), order(std::move(wanted)), answer_time(answers), read(std::move(source)),
          events(std::move(called)), wait(loop) {}

    void ask(request wanted, std::function<void(const answer &)> next);
    void ask_status(std::function<void(const std::optional<upgrade_status> &)> next);
    void enter(upgrade_step next);
    void note_progress();

    void begin();
    void ask_to_start(bool may_announce);
    void announce(std::function<void()> next);
    void watch();
    void look_for_end();
    void look_at_pieces();

    void settle();
    void poll_outcome();
    [[nodiscard]] bool is_over(const upgrade_status &status) const;
    void poll_later();
    void judge(const std::optional<upgrade_status> &status);
    void take_percent(const report &told);
    [[nodiscard]] clock::time_point progress_time() const;
    void end(upgrade_outcome outcome);

    client &to;
    upgrade_order order;
    milliseconds answer_time;
    image_sender::source read;
    callbacks events;
    timer wait;

    upgrade_status before;
    std::string gateway_id;
    std::optional<image_sender> sender; // of the current attempt
    upgrade_step step = upgrade_step::starting;
    uint64_t round = 0; // counts steps; what was asked in an earlier one is void
    bool again = false; // it was started once more
    bool link_lost = false;
    bool ended = false;

    clock::time_point last_progress; // but for that of the sender
    milliseconds patience{0};

    // While it settles:
    clock::time_point settling_since;
    milliseconds pause{0};
    bool polling = false;
    bool version_reported = false;
    std::optional<uint64_t> percent;
    clock::time_point last_percent;
};

// An answer counts only as long as the step lasts in which it was asked for.
void image_upgrade::state::ask(request wanted, std::function<void(const answer &)> next) {
    to.ask(std::move(wanted),
           [alive = weak_from_this(), asked_in = round, next = std::move(next)](const answer &got) {
               const auto self = alive.lock();
               if (self && self->events.on_answer) {
                   self->events.on_answer(got);
               }
               if (self && self->round == asked_in) {
                   next(got);
               }
           });
}

void image_upgrade::state::ask_status(
    std::function<void(const std::optional<upgrade_status> &)> next) {
    ask_upgrade_status(
        to, {.order = order},
        [alive = weak_from_this()](const answer &got) {
            const auto self = alive.lock();
            if (self && self->events.on_answer) {
                self->events.on_answer(got);
            }
        },
        [alive = weak_from_this(), asked_in = round,
         next = std::move(next)](const upgrade_answer &got) {
            const auto self = alive.lock();
            if (self && self->round == asked_in) {
                next(got.status);
            }
        });
}

void image_upgrade::state::enter(upgrade_step next) {
    ++round;
    wait.cancel();
    step = next;
    if (events.on_step) {
        events.on_step(next);
    }
}

void image_upgrade::state::note_progress() {
    last_progress = clock::now();
    if (events.on_progress) {
        events.on_progress();
    }
}

// The gateway may ask for the first piece before it answers.
void image_upgrade::state::begin() {
    sender.emplace(to, order.image_bytes, std::vector<std::string>{before.target_id, gateway_id},
                   silence_limit * answer_time, read, [this] { look_at_pieces(); });
    ask_to_start(true);
}

// Another app that asks for versions withdraws the announcement; then it is repeated.
void image_upgrade::state::ask_to_start(bool may_announce) {
    ask(start_request(order, before.target_id), [this, may_announce](const answer &got) {
        const bool withdrawn = !got.failure && got.ret != 0 && got.payload == "file_size is zero";
        if (withdrawn && may_announce) {
            return announce([this] { ask_to_start(false); });
        }
        if (got.failure || got.ret != 0) {
            return end({.end = upgrade_end::refused, .status = {}, .last = got, .fault = {}});
        }
        patience = silence_limit * answer_time;
        link_lost = false; // or it would not have been accepted
        enter(upgrade_step::transferring);
        look_at_pieces();
    });
}

void image_upgrade::state::announce(std::function<void()> next) {
    ask(announce_request(order), [this, next = std::move(next)](const answer &got) {
        if (got.failure || got.ret != 0) {
            return end({.end = upgrade_end::refused, .status = {}, .last = got, .fault = {}});
        }
        next();
    });
}

void image_upgrade::state::look_at_pieces() {
    if (step != upgrade_step::transferring || ended) {
        return;
    }
    if (!sender->fault().empty()) {
        return end(
            {.end = upgrade_end::broken, .status = {}, .last = {}, .fault = sender->fault()});
    }
    note_progress();
    if (sender->is_complete()) {
        return settle();
    }
    watch();
}

void image_upgrade::state::watch() {
    wait.start(answer_time, [this] { look_for_end(); });
}

// A gateway that can't use a piece, or has ended the upgrade, stays silent.
void image_upgrade::state::look_for_end() {
    ask_status([this, asked = clock::now()](const std::optional<upgrade_status> &status) {
        if (progress_time() > asked) {
            return watch();
        }
        if (status && !status->is_running_here()) {
            return settle();
        }
        if (clock::now() - progress_time() > patience) {
            return end({.end = upgrade_end::stalled, .status = status, .last = {}, .fault = {}});
        }
        watch();
    });
}

void image_upgrade::state::settle() {
    patience = (sender->is_complete() ? settling_limit : lost_limit) * answer_time;
    settling_since = last_progress = clock::now();
    pause = answer_time / first_polls_per_answer_time;
    enter(upgrade_step::settling);
    poll_outcome();
}

void image_upgrade::state::poll_outcome() {
    polling = true;
    version_reported = false;
    ask_status([this](const std::optional<upgrade_status> &status) {
        polling = false;
        if (status && is_over(*status)) {
            return judge(status);
        }
        const auto now = clock::now();
        if (now - last_progress > patience ||
            now - settling_since > installing_limit * answer_time) {
            return judge({});
        }
        poll_later();
    });
}

bool image_upgrade::state::is_over(const upgrade_status &status) const {
    const bool arrived = same_version(status.version, order.version);
    const bool unknown = status.running && !order.cid.empty();
    const bool installing = percent && clock::now() - last_percent < report_gap_limit * answer_time;
    return !unknown && !status.is_running_here() && (arrived || !installing);
}

void image_upgrade::state::poll_later() {
    wait.start(version_reported ? milliseconds(0) : pause, [this] { poll_outcome(); });
    pause = std::min(2 * pause + milliseconds(1), answer_time / polls_per_answer_time);
}

void image_upgrade::state::judge(const std::optional<upgrade_status> &status) {
    const bool complete = sender->is_complete();
    const bool renewed = complete || !same_version(before.version, order.version);
    const auto outcome = [&status](upgrade_end how) {
        return upgrade_outcome{.end = how, .status = status, .last = {}, .fault = {}};
    };
    if (!status) {
        return end(outcome(upgrade_end::unknown));
    }
    if (renewed && same_version(status->version, order.version)) {
        return end(outcome(upgrade_end::installed));
    }
    if (complete) {
        return end(outcome(upgrade_end::not_installed));
    }
    if (status->running || std::exchange(again, true)) {
        return end(outcome(link_lost ? upgrade_end::disconnected : upgrade_end::gave_up));
    }
    enter(upgrade_step::starting);
    sender.reset();
    announce([this] { begin(); });
}

// Until the transfer is complete the requests for pieces are more exact. Only a greater number
// counts as progress.
void image_upgrade::state::take_percent(const report &told) {
    const nlohmann::json body = parse_json(told.payload);
    const auto now_percent = member_count(body, "progress");
    if (!now_percent || member_text(body, "cid") != before.target_id ||
        (percent && *now_percent <= *percent)) {
        return;
    }
    percent = now_percent;
    last_percent = clock::now();
    note_progress();
}

image_upgrade::clock::time_point image_upgrade::state::progress_time() const {
    return sender ? std::max(last_progress, sender->last_progress()) : last_progress;
}

void image_upgrade::state::end(upgrade_outcome outcome) {
    if (std::exchange(ended, true)) {
        return;
    }
    ++round;
    wait.cancel();
    const auto self = shared_from_this();
    events.on_end(outcome);
}

image_upgrade::image_upgrade(event_loop &loop, client &to, upgrade_order order,
                             milliseconds answer_time, image_sender::source read, callbacks events)
    : state_(std::make_shared<state>(loop, to, std::move(order), answer_time, std::move(read),
                                     std::move(events))) {}

image_upgrade::~image_upgrade() {
    state_->ended = true;
    state_->wait.cancel();
}

void image_upgrade::start(const upgrade_answer &before) {
    state_->before = before.status.value();
    state_->gateway_id = before.gateway_id;
    state_->begin();
}

bool image_upgrade::take(const report &told) {
    const auto now = state_;
    if (!now->sender || !told.readable) {
        return false;
    }
    const bool settling = now->step == upgrade_step::settling;
    if (told.type == frame_type::download_firmware) {
        // Over a new connection nothing is sent: the upgrade has ended with the old one.
        return now->ended || settling || now->sender->take(told);
    }
    if (now->ended) {
        return false;
    }
    if (told.type == frame_type::dev_upgrade && told.ret != 0 && !settling) {
        now->end({.end = upgrade_end::refused,
                  .status = {},
                  .last = {.type = told.type, .ret = told.ret, .payload = told.payload},
                  .fault = {}});
    } else if (told.type == frame_type::upgrade_percent_rpt && settling && has_image()) {
        now->take_percent(told);
    } else if (told.type == frame_type::subdevice_update_rpt && settling) {
        now->version_reported = true;
        if (!now->polling) {
            now->poll_later();
        }
    }
    return false;
}

void image_upgrade::take(const link_change &change) {
    const auto now = state_;
    if (now->ended || change.state == link_state::connected) {
        return;
    }
    now->link_lost = true;
    const bool for_ever = change.pause.count() == 0;
    if (for_ever && now->step != upgrade_step::starting) {
        const bool whole = now->sender->is_complete();
        now->end({.end = whole ? upgrade_end::unknown : upgrade_end::disconnected,
                  .status = {},
                  .last = {.failure = change.why},
                  .fault = {}});
    } else if (now->step == upgrade_step::transferring) {
        now->settle();
    }
}

upgrade_step image_upgrade::step() const {
    return state_->step;
}

uint64_t image_upgrade::taken_bytes() const {
    return state_->sender ? state_->sender->taken_bytes() : 0;
}

bool image_upgrade::has_image() const {
    return state_->sender && state_->sender->is_complete();
}

std::optional<uint64_t> image_upgrade::installed_percent() const {
    return state_->percent;
}

bool image_upgrade::is_link_lost() const {
    return state_->link_lost;
}

image_upgrade::clock::time_point image_upgrade::last_progress() const {
    return state_->progress_time();
}

milliseconds image_upgrade::patience() const {
    return state_->patience;
}

} // namespace lan_client
