#include "shrink/shrink.h"

#include "compare/acts.h"
#include "shrink/reductions.h"

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

namespace replay {
namespace {

/** Longest pauses that are tried, the shortest first. */
constexpr uint64_t pauses_us[] = {2 * edge_us, 1'000'000, 10'000'000};

bool is_same_answer(const std::optional<answer> &one, const std::optional<answer> &other) {
    return one.has_value() == other.has_value() && (!one || say_the_same(*one, *other));
}

bool is_same(const difference &one, const difference &other) {
    if (one.kind == difference_kind::ended) {
        return other.kind == one.kind; // addresses in its words differ
    }
    return one.kind == other.kind && is_same_answer(one.expected, other.expected) &&
           is_same_answer(one.got, other.got);
}

/** Whether the answer may come of something that was left out, unlike the reply to a request. */
bool may_be_caused_elsewhere(const difference &one) {
    return one.kind == difference_kind::missing &&
           (is_report(*one.expected) || one.expected->kind == answer_kind::datagram ||
            one.expected->kind == answer_kind::closed);
}

/** Whether it is the same act. */
bool is_same_act(const session::happening &one, const session::happening &other) {
    const auto *frame = std::get_if<session::frame>(&one);
    const auto *other_frame = std::get_if<session::frame>(&other);
    if (frame != nullptr && other_frame != nullptr) {
        return frame->client == other_frame->client && frame->from == other_frame->from &&
               frame->content.type == other_frame->content.type &&
               frame->content.number == other_frame->content.number &&
               frame->content.payload == other_frame->content.payload;
    }
    const auto *control = std::get_if<session::control>(&one);
    const auto *other_control = std::get_if<session::control>(&other);
    return control != nullptr && other_control != nullptr && control->line == other_control->line;
}

class shrinker {
  public:
    shrinker(const difference &wanted, const shrink_options &how, const attempt_maker &make_attempt,
             const std::function<void(std::size_t, std::size_t)> &progress)
        : wanted_(wanted), how_(how), make_attempt_(make_attempt), progress_(progress) {}

    shrunk run(const recording &from) {
        cut_behind_difference(from);
        shorten_pauses();
        drop_apps();
        for (std::size_t before = SIZE_MAX; act_count(best_) < before;) {
            before = act_count(best_);
            drop_acts();
            drop_apps();
        }
        drop_members();
        shorten_pauses(); // others than before lie next to each other
        drop_broadcasts();
        return {.reduced = best_,
                .events_before = act_count(from),
                .events_after = act_count(best_),
                .plays = plays_};
    }

  private:
    /** Where apps stay connected, a report before the difference may be missed as well: that is the
     * one to be reduced, then. */
    void cut_behind_difference(const recording &from) {
        attempt made = make_attempt_(cut_behind(from, wanted_));
        ++plays_;
        if (made.differences.empty()) {
            throw std::runtime_error(
                "the difference does not come again when the session ends with "
                "it, so that it can't be reduced");
        }
        const auto same =
            std::find_if(made.differences.begin(), made.differences.end(),
                         [&](const difference &each) { return is_same(each, wanted_); });
        const bool is_there = same != made.differences.end() && !how_.has_other_build;
        wanted_ = is_there ? *same : made.differences.front();
        best_ = std::move(made.judged);
        if (how_.has_other_build || wanted_.kind == difference_kind::ended) {
            return;
        }
        needs_witness_ = has_witness(made.got);
        if (!needs_witness_) {
            pin_last_act();
        }
    }

    /** Whether another app got the report that one missed: something still causes it. */
    [[nodiscard]] bool has_witness(const std::vector<answer> &got) const {
        return wanted_.kind == difference_kind::missing && is_report(*wanted_.expected) &&
               std::any_of(got.begin(), got.end(), [&](const answer &one) {
                   answer same = *wanted_.expected;
                   same.client = one.client;
                   return one.client != wanted_.expected->client && say_the_same(one, same);
               });
    }

    /** The record knows the answer to this act alone. */
    void pin_last_act() {
        for (const session::event &each : best_.events) {
            const bool is_candidate =
                std::holds_alternative<session::control>(each.what) ||
                (std::holds_alternative<session::frame>(each.what) && is_act(each));
            if (is_candidate && is_cause(each)) {
                pinned_ = each.what;
            }
        }
    }

    /** Whether the wanted answer may be that of an act: of a request with its number, else any. */
    [[nodiscard]] bool is_cause(const session::event &act) const {
        const answer &shown = wanted_.shown();
        const auto *frame = std::get_if<session::frame>(&act.what);
        if (shown.kind != answer_kind::frame || is_report(shown) || frame == nullptr) {
            return true;
        }
        return frame->client == shown.client && frame->content.type == shown.content.type;
    }

    [[nodiscard]] bool has_pinned(const recording &tried) const {
        return !pinned_ ||
               std::any_of(tried.events.begin(), tried.events.end(),
                           [&](const auto &each) { return is_same_act(each.what, *pinned_); });
    }

    bool take_if_it_fails(const recording &tried) {
        if (plays_ >= shrink_plays_max || !has_pinned(tried)) {
            return false;
        }
        ++plays_;
        attempt made = make_attempt_(tried);
        progress_(plays_, act_count(best_));
        std::set<std::size_t> uncaused;
        std::vector<difference> left;
        for (difference &each : made.differences) {
            if (!how_.has_other_build && !is_same(each, wanted_) && may_be_caused_elsewhere(each)) {
                uncaused.insert(each.expected->event);
            } else if (each.shown().kind != answer_kind::datagram ||
                       wanted_.shown().kind == answer_kind::datagram) {
                left.push_back(std::move(each));
            }
        }
        if (left.empty() || !is_same(left.front(), wanted_) ||
            (needs_witness_ && !has_witness(made.got))) {
            return false;
        }
        best_ = uncaused.empty() ? std::move(made.judged) : without(made.judged, uncaused);
        return true;
    }

    void shorten_pauses() {
        for (const uint64_t most_us : pauses_us) {
            if (take_if_it_fails(with_pauses_of(best_, most_us))) {
                return;
            }
        }
    }

    void drop_apps() {
        for (std::size_t at = places_of_apps(best_).size(); at > 0; --at) {
            const auto places = places_of_apps(best_);
            if (at <= places.size()) {
                take_if_it_fails(without(best_, {places[at - 1]}));
            }
        }
    }

    /** Leaves out runs of events, each half as long as the ones before, the last ones first. */
    void drop_acts() {
        for (std::size_t length = places_of_acts(best_).size(); length > 0; length /= 2) {
            for (std::size_t end = places_of_acts(best_).size(); end > 0;) {
                const auto places = places_of_acts(best_);
                end = std::min(end, places.size());
                const std::size_t begin = end - std::min(length, end);
                take_if_it_fails(
                    without(best_, {places.begin() + static_cast<std::ptrdiff_t>(begin),
                                    places.begin() + static_cast<std::ptrdiff_t>(end)}));
                end = begin;
            }
        }
    }

    void drop_members() {
        for (std::size_t act = 0; act < places_of_acts(best_).size(); ++act) {
            for (bool is_shorter = true; is_shorter;) {
                const auto places = places_of_acts(best_);
                is_shorter = false;
                if (act >= places.size()) {
                    break;
                }
                for (const recording &tried : with_member_less(best_, places[act])) {
                    if (take_if_it_fails(tried)) {
                        is_shorter = true;
                        break;
                    }
                }
            }
        }
    }

    /** They happen by themselves, at times of their own. */
    void drop_broadcasts() {
        std::set<std::size_t> places;
        for (const answer &each : answers_of(best_)) {
            if (each.kind == answer_kind::datagram) {
                places.insert(each.event);
            }
        }
        if (places.empty() || wanted_.shown().kind == answer_kind::datagram) {
            return;
        }
        attempt made = make_attempt_(without(best_, places));
        ++plays_;
        if (made.differences.size() == 1 && is_same(made.differences.front(), wanted_)) {
            best_ = std::move(made.judged);
        }
    }

    difference wanted_;
    const shrink_options &how_;
    const attempt_maker &make_attempt_;
    const std::function<void(std::size_t, std::size_t)> &progress_;
    recording best_;
    std::optional<session::happening> pinned_;
    bool needs_witness_ = false;
    std::size_t plays_ = 0;
};

} // namespace

std::size_t act_count(const recording &of) {
    return static_cast<std::size_t>(
        std::count_if(of.events.begin(), of.events.end(),
                      [](const session::event &each) { return is_act(each); }));
}

shrunk shrink(const recording &from, const difference &wanted, const shrink_options &how,
              const attempt_maker &make_attempt,
              const std::function<void(std::size_t, std::size_t)> &progress) {
    return shrinker(wanted, how, make_attempt, progress).run(from);
}

} // namespace replay
