#include "compare/acts.h"

#include "lan_client/frame_types.h"

#include <algorithm>
#include <string>

namespace replay {
namespace {

/** Whether a frame is the report that the operator made a device give. */
bool is_report_of(const session::frame &frame, const std::vector<std::string> &line) {
    const std::string &text = frame.content.payload;
    if (frame.from != session::side::gateway ||
        frame.content.type != lan_client::frame_type::dp_report ||
        text.find('"' + line[1] + '"') == std::string::npos) {
        return false;
    }
    return std::all_of(line.begin() + 2, line.end(), [&text](const std::string &data_point) {
        const std::size_t sign = data_point.find('=');
        const std::string name = '"' + data_point.substr(0, sign) + "\":";
        return sign == std::string::npos ||
               text.find(name + data_point.substr(sign + 1)) != std::string::npos ||
               text.find(name + '"' + data_point.substr(sign + 1)) != std::string::npos;
    });
}

/** Whether an event shows that a line of the operator has taken effect. */
bool is_effect_of(const session::event &event, const std::vector<std::string> &line) {
    if (line.size() > 2 && line[0] == "report") {
        const auto *frame = std::get_if<session::frame>(&event.what);
        return frame != nullptr && is_report_of(*frame, line);
    }
    const auto *closed = std::get_if<session::closed>(&event.what);
    return closed != nullptr && closed->by == session::side::gateway && !line.empty() &&
           line[0] == "call";
}

/** When a line of the operator took effect: with its answer, or with what it caused before. */
uint64_t time_of_effect(const recording &of, std::size_t place, const session::control &line) {
    const uint64_t answered_us = of.events[place].at_us;
    const uint64_t began_us = line.began_us.value_or(answered_us);
    uint64_t found_us = answered_us;
    for (std::size_t at = place; at > 0 && of.events[at - 1].at_us >= began_us; --at) {
        if (is_effect_of(of.events[at - 1], line.line)) {
            found_us = of.events[at - 1].at_us;
        }
    }
    return found_us;
}

} // namespace

bool is_act(const session::event &of) {
    const auto *datagram = std::get_if<session::datagram>(&of.what);
    return client_of_app_event(of) != 0 || std::holds_alternative<session::control>(of.what) ||
           (datagram != nullptr && datagram->from == session::side::app);
}

std::vector<act> acts_of(const recording &of) {
    std::vector<act> acts;
    for (std::size_t place = 0; place < of.events.size(); ++place) {
        const session::event &each = of.events[place];
        if (!is_act(each)) {
            continue;
        }
        const auto *frame = std::get_if<session::frame>(&each.what);
        if (const auto *control = std::get_if<session::control>(&each.what)) {
            acts.push_back({.at_us = time_of_effect(of, place, *control), .what = &each});
        } else if (frame != nullptr && frame->began_us && frame->first_bytes != 0) {
            acts.push_back(
                {.at_us = *frame->began_us, .what = &each, .bytes_max = frame->first_bytes});
            acts.push_back({.at_us = each.at_us,
                            .what = &each,
                            .first_byte = frame->first_bytes,
                            .is_first = false});
        } else {
            acts.push_back({.at_us = each.at_us, .what = &each});
        }
    }
    std::stable_sort(acts.begin(), acts.end(),
                     [](const act &one, const act &other) { return one.at_us < other.at_us; });
    return acts;
}

} // namespace replay
