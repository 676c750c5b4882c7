#include "report/story.h"

#include "verbs.h"

#include <fmt/format.h>

#include <algorithm>

namespace replay {
namespace {

using session::side;

constexpr uint64_t log_window_us = 1'000'000;

const char *arrow_of(side from) {
    return from == side::app ? ">" : "<";
}

struct event_words {
    std::string operator()(const session::connected &of) const {
        return fmt::format("client {} connects from {}", of.client, of.peer);
    }
    std::string operator()(const session::closed &of) const {
        return fmt::format("client {} {}", of.client,
                           of.by == side::gateway ? "is closed by the gateway"
                           : of.by                ? "closes"
                                                  : "is gone");
    }
    std::string operator()(const session::frame &of) const {
        const answer shown{.client = of.client, .content = of.content};
        return fmt::format("client {} {} {}", of.client, arrow_of(of.from), words_of(shown));
    }
    std::string operator()(const session::raw_bytes &of) const {
        return fmt::format("client {} {} {} bytes that are no frame", of.client, arrow_of(of.from),
                           of.bytes.size());
    }
    std::string operator()(const session::datagram &of) const {
        if (of.from == side::gateway) {
            return {}; // again and again
        }
        answer shown{.kind = answer_kind::datagram, .port = of.port};
        if (const auto *content = std::get_if<session::frame_content>(&of.content)) {
            shown.content = *content;
        } else {
            shown.text = std::get<std::string>(of.content);
        }
        return "datagram " + words_of(shown);
    }
    std::string operator()(const session::control &of) const {
        std::string words = "engr_gatewayctl";
        for (const std::string &word : of.line) {
            words += " " + control::terminal_text(word);
        }
        return words;
    }
    template <typename Other>
    std::string operator()(const Other &) const {
        return {};
    }
};

} // namespace

std::string time_text(uint64_t at_us) {
    const uint64_t at_ms = at_us / 1000;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", at_ms / 3'600'000, at_ms / 60'000 % 60,
                       at_ms / 1000 % 60, at_ms % 1000);
}

std::string line_of_event(const session::event &of) {
    return std::visit(event_words{}, of.what);
}

std::vector<std::string> story_before(const recording &of, std::size_t before, std::size_t most) {
    std::vector<std::string> lines;
    for (std::size_t at = std::min(before, of.events.size()); at > 0 && lines.size() < most; --at) {
        const session::event &each = of.events[at - 1];
        if (const std::string line = line_of_event(each); !line.empty()) {
            lines.push_back(time_text(each.at_us) + "  " + line);
        }
    }
    std::reverse(lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> log_before(const recording &of, uint64_t at_us, std::size_t most) {
    std::vector<std::string> lines;
    for (const session::event &each : of.events) {
        const auto *line = std::get_if<session::log_line>(&each.what);
        if (line != nullptr && each.at_us <= at_us && each.at_us + log_window_us >= at_us) {
            lines.push_back(time_text(each.at_us) + "  " + control::terminal_text(line->text));
        }
    }
    if (lines.size() > most) {
        lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
    }
    return lines;
}

} // namespace replay
