#include "shrink/reductions.h"

#include "compare/acts.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace replay {
namespace {

using nlohmann::ordered_json;
using session::side;

/** After the last event, time for what it leads to. */
constexpr uint64_t after_last_us = 1'000'000;

/** A report so soon after an act is taken for what came of it. */
constexpr uint64_t caused_within_us = 1'000'000;

/** For each event the one that it belongs to, which may be itself. */
std::vector<std::size_t> owners_in(const recording &of) {
    std::vector<std::size_t> owners;
    std::map<std::tuple<uint32_t, uint32_t, uint32_t>, std::size_t> requests;
    std::size_t last_act = of.events.size(); // none
    for (std::size_t at = 0; at < of.events.size(); ++at) {
        std::size_t owner = at;
        if (const auto *frame = std::get_if<session::frame>(&of.events[at].what)) {
            const bool is_numbered = frame->from == side::app || frame->content.number != 0;
            const uint32_t number = is_numbered ? frame->content.number : 0;
            const std::tuple key{frame->client, frame->content.type, number};
            if (frame->from == side::app) {
                requests[key] = at;
                // A keep-alive is answered with number 0.
                requests[{frame->client, frame->content.type, 0}] = at;
            } else if (const auto found = requests.find(key); found != requests.end()) {
                owner = found->second;
            } else if (last_act < at &&
                       of.events[at].at_us - of.events[last_act].at_us < caused_within_us) {
                owner = last_act; // a report
            }
        }
        const bool is_connecting = std::holds_alternative<session::connected>(of.events[at].what);
        last_act = is_act(of.events[at]) && !is_connecting ? at : last_act;
        owners.push_back(owner);
    }
    return owners;
}

/** A JSON object as text, as short as it came. */
std::string text_of(const ordered_json &object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

/** Moves the time at which an event's first byte came along with the event; a longer pause in it is
 * shortened to nothing. */
void shift_begin(session::event &of, uint64_t dropped_us) {
    const auto shift = [&](std::optional<uint64_t> &began_us) {
        if (began_us) {
            began_us = std::min(of.at_us, *began_us - std::min(*began_us, dropped_us));
        }
    };
    if (auto *frame = std::get_if<session::frame>(&of.what)) {
        shift(frame->began_us);
    } else if (auto *bytes = std::get_if<session::raw_bytes>(&of.what)) {
        shift(bytes->began_us);
    }
}

/** Puts each line of the operator before what it brought about. */
void move_to_effects(recording &of) {
    std::map<const session::event *, uint64_t> times;
    for (const act &each : acts_of(of)) {
        times[each.what] = each.at_us;
    }
    for (session::event &each : of.events) {
        if (auto *control = std::get_if<session::control>(&each.what)) {
            each.at_us = times.at(&each);
            control->began_us.reset();
        }
    }
    // An act goes before what the gateway did at the same time.
    std::stable_sort(of.events.begin(), of.events.end(),
                     [](const session::event &one, const session::event &other) {
                         return one.at_us != other.at_us
                                    ? one.at_us < other.at_us
                                    : std::holds_alternative<session::control>(one.what) &&
                                          !std::holds_alternative<session::control>(other.what);
                     });
}

} // namespace

std::vector<std::size_t> places_of_acts(const recording &of) {
    std::vector<std::size_t> places;
    for (std::size_t at = 0; at < of.events.size(); ++at) {
        if (is_act(of.events[at]) &&
            !std::holds_alternative<session::connected>(of.events[at].what)) {
            places.push_back(at);
        }
    }
    return places;
}

std::vector<std::size_t> places_of_apps(const recording &of) {
    std::vector<std::size_t> places;
    for (std::size_t at = 0; at < of.events.size(); ++at) {
        if (std::holds_alternative<session::connected>(of.events[at].what)) {
            places.push_back(at);
        }
    }
    return places;
}

recording without(const recording &from, const std::set<std::size_t> &places) {
    const std::vector<std::size_t> owners = owners_in(from);
    std::set<uint32_t> clients; // that are left out as a whole
    recording reduced{.begin = from.begin, .events = {}};
    for (std::size_t at = 0; at < from.events.size(); ++at) {
        const session::event &each = from.events[at];
        const bool is_dropped = places.count(at) != 0 || places.count(owners[at]) != 0;
        if (is_dropped && std::holds_alternative<session::connected>(each.what)) {
            clients.insert(session::client_of(each));
        }
        const uint32_t client = session::client_of(each);
        if (!is_dropped && (client == 0 || clients.count(client) == 0)) {
            reduced.events.push_back(each);
        }
    }
    return reduced;
}

recording cut_behind(const recording &whole, const difference &last) {
    recording from = whole;
    if (!last.expected) {
        move_to_effects(from); // the difference has no place among the events
    }
    recording cut{.begin = from.begin, .events = {}};
    std::map<uint16_t, answer> last_datagrams; // by port
    bool has_left_out_act = false;
    for (std::size_t at = 0; at < from.events.size(); ++at) {
        const session::event &each = from.events[at];
        const bool is_behind = last.expected
                                   ? at > last.expected->event
                                   : each.at_us / 1000 > last.at_us / 1000; // a world has ms
        const std::optional<answer> made = answer_in(each);
        has_left_out_act = has_left_out_act || (is_behind && is_act(each));
        // A report may leave after what was answered later, and before what was asked earlier.
        const bool is_late =
            made && each.at_us <= last.at_us + edge_us && (is_report(*made) || !has_left_out_act);
        if (is_behind && !is_late) {
            continue;
        }
        if (!made && !is_act(each)) {
            continue;
        }
        if (made && made->kind == answer_kind::datagram) {
            const auto [place, is_first] = last_datagrams.try_emplace(made->port, *made);
            if (!is_first && say_the_same(place->second, *made)) {
                continue; // as before
            }
            place->second = *made;
        }
        cut.events.push_back(each);
    }
    move_to_effects(cut);
    cut.events.push_back({.at_us = last.at_us + after_last_us, .what = session::ended{}});
    return cut;
}

recording up_to(const recording &from, uint64_t end_us) {
    recording cut{.begin = from.begin, .events = {}};
    for (const session::event &each : from.events) {
        if (each.at_us <= end_us && (is_act(each) || answer_in(each))) {
            cut.events.push_back(each);
        }
    }
    cut.events.push_back({.at_us = end_us, .what = session::ended{}});
    return cut;
}

recording with_pauses_of(const recording &from, uint64_t most_us) {
    recording changed = from;
    uint64_t before_us = 0;
    uint64_t dropped_us = 0;
    for (session::event &each : changed.events) {
        const uint64_t pause_us = each.at_us - before_us;
        before_us = each.at_us;
        dropped_us += pause_us - std::min(pause_us, most_us);
        each.at_us -= dropped_us;
        shift_begin(each, dropped_us);
    }
    return changed;
}

std::vector<recording> with_member_less(const recording &from, std::size_t place) {
    std::vector<recording> all;
    const auto *asked = std::get_if<session::frame>(&from.events[place].what);
    if (asked == nullptr || asked->content.coded == session::coding::unknown) {
        return all;
    }
    const ordered_json object = ordered_json::parse(asked->content.payload, nullptr, false);
    if (!object.is_object()) {
        return all;
    }
    const auto add = [&](const ordered_json &less) {
        recording &changed = all.emplace_back(from);
        std::get<session::frame>(changed.events[place].what).content.payload = text_of(less);
    };
    for (const auto &[name, value] : object.items()) {
        ordered_json less = object;
        less.erase(name);
        add(less);
    }
    for (const auto &[name, value] : object.items()) {
        if (!value.is_structured() || value.size() < 2) {
            continue;
        }
        for (std::size_t inner = 0; inner < value.size(); ++inner) {
            ordered_json less = object;
            less[name].erase(std::next(less[name].begin(), static_cast<std::ptrdiff_t>(inner)));
            add(less);
        }
    }
    return all;
}

} // namespace replay
