#include "compare/answers.h"

#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "support/numbers.h"
#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>
#include <map>
#include <tuple>

namespace replay {
namespace {

using session::side;
namespace frame_type = lan_client::frame_type;

/** Verbs that only show the gateway's state, how often a service was called among it. */
constexpr std::string_view showing_verbs[] = {"status", "devices"};

/** Members that name what a report is about. */
constexpr const char *device_members[] = {"cid", "devId", "gid", "sid"};

std::string device_of(const session::frame_content &report) {
    const nlohmann::json object = lan_client::parse_json(report.payload);
    for (const char *name : device_members) {
        if (object.is_object() && object.contains(name)) {
            return lan_client::member_text(object, name);
        }
    }
    return {};
}

/** The answer that an event is, if it is one. */
struct answer_reader {
    answer &into;

    bool operator()(const session::frame &of) const {
        into.kind = answer_kind::frame;
        into.client = of.client;
        into.content = of.content;
        if (of.from == side::gateway && is_report(into)) {
            into.about = device_of(of.content);
        }
        return of.from == side::gateway;
    }
    bool operator()(const session::raw_bytes &of) const {
        into.kind = answer_kind::bytes;
        into.client = of.client;
        into.text = of.bytes;
        return of.from == side::gateway;
    }
    bool operator()(const session::closed &of) const {
        into.kind = answer_kind::closed;
        into.client = of.client;
        return of.by == side::gateway;
    }
    bool operator()(const session::datagram &of) const {
        into.kind = answer_kind::datagram;
        into.port = of.port;
        if (const auto *content = std::get_if<session::frame_content>(&of.content)) {
            into.content = *content;
        } else {
            into.text = std::get<std::string>(of.content);
        }
        return of.from == side::gateway;
    }
    bool operator()(const session::control &of) const {
        into.kind = answer_kind::control;
        into.text = of.answer;
        for (const std::string &word : of.line) {
            into.about += (into.about.empty() ? "" : " ") + word;
        }
        return !of.line.empty() &&
               std::ranges::find(showing_verbs, of.line.front()) == std::end(showing_verbs);
    }
    template <typename Other>
    bool operator()(const Other &) const {
        return false;
    }
};

std::string statement_of_frame(const session::frame_content &content) {
    std::string words = content.ret ? fmt::format("ret {}", *content.ret) : "";
    const auto add = [&words](const std::string &more) {
        words += (words.empty() ? "" : " ") + more;
    };
    if (content.segment) {
        add(fmt::format("segment {} of {}", content.segment->number, content.segment->count));
    }
    if (!content.crc_matches) {
        add("(wrong CRC)");
    }
    if (content.coded == session::coding::unknown) {
        add("(under another key)");
    }
    if (!content.payload.empty()) {
        add(control::terminal_text(content.payload));
    }
    return words;
}

bool has_segment(const std::optional<lan_client::segment_position> &one,
                 const std::optional<lan_client::segment_position> &other) {
    return one.has_value() == other.has_value() &&
           (!one || (one->count == other->count && one->number == other->number));
}

/** When an app was connected, or a line of the operator was carried out. */
struct presence {
    uint64_t from_us = 0;
    uint64_t to_us = std::numeric_limits<uint64_t>::max();
};

/** In order: there is one line at a time. */
std::vector<presence> operator_times(const recording &of) {
    std::vector<presence> times;
    for (const session::event &each : of.events) {
        if (const auto *line = std::get_if<session::control>(&each.what)) {
            const uint64_t near_us = each.at_us - std::min(each.at_us, edge_us);
            times.push_back(
                {std::min(line->began_us.value_or(near_us), near_us), each.at_us + edge_us});
        }
    }
    return times;
}

void mark_edges(std::vector<answer> &answers, const recording &of) {
    std::map<uint32_t, presence> apps;
    for (const session::event &each : of.events) {
        if (const auto *connected = std::get_if<session::connected>(&each.what)) {
            apps[connected->client].from_us = each.at_us;
        } else if (const auto *closed = std::get_if<session::closed>(&each.what)) {
            apps[closed->client].to_us = each.at_us;
        }
    }
    const std::vector<presence> lines = operator_times(of);
    for (answer &one : answers) {
        const auto line = std::lower_bound(
            lines.begin(), lines.end(), one.at_us,
            [](const presence &each, uint64_t at_us) { return each.to_us < at_us; });
        one.is_beside_operator =
            is_report(one) && line != lines.end() && line->from_us <= one.at_us;
        if (const auto found = apps.find(one.client); is_report(one) && found != apps.end()) {
            const presence &app = found->second;
            one.is_at_edge = one.at_us < app.from_us + edge_us ||
                             (one.at_us < app.to_us && app.to_us - one.at_us < edge_us);
        }
    }
}

/** The codings of the requests that have no reply yet. */
class open_requests {
  public:
    void note(const session::event &of) {
        const auto *frame = std::get_if<session::frame>(&of.what);
        if (frame != nullptr && frame->from == side::app) {
            coded_[{frame->client, frame->content.type, frame->content.number}] =
                frame->content.coded;
        }
    }
    /** Closes the request of a reply. Returns whether it was under another key than the gateway's,
     * which is that of the reply. */
    bool close(const answer &reply) {
        using session::coding;
        const auto request =
            coded_.extract({reply.client, reply.content.type, reply.content.number});
        return reply.kind == answer_kind::frame && !request.empty() &&
               request.mapped() != coding::plain && request.mapped() != reply.content.coded &&
               reply.content.coded != coding::plain;
    }

  private:
    std::map<std::tuple<uint32_t, uint32_t, uint32_t>, session::coding> coded_;
};

bool is_announcement(const answer &of) {
    return of.kind == answer_kind::datagram && of.content.type == frame_type::udp_discovery;
}

void mark_brief_announcements(std::vector<answer> &answers) {
    std::vector<answer *> same; // announcements one after the other
    const auto mark = [&same] {
        const bool brief = !same.empty() && same.back()->at_us - same.front()->at_us < passing_us;
        for (answer *each : same) {
            each->is_brief = brief;
        }
        same.clear();
    };
    for (answer &one : answers) {
        if (is_announcement(one)) {
            if (!same.empty() && !say_the_same(*same.back(), one)) {
                mark();
            }
            same.push_back(&one);
        }
    }
    mark();
}

} // namespace

bool is_report(const answer &of) {
    return of.kind == answer_kind::frame && of.content.number == 0 &&
           of.content.type != frame_type::keepalive;
}

bool say_the_same(const answer &one, const answer &other) {
    const session::frame_content &left = one.content;
    const session::frame_content &right = other.content;
    return one.kind == other.kind && one.client == other.client && one.port == other.port &&
           one.text == other.text && left.number == right.number && left.type == right.type &&
           left.ret == right.ret && has_segment(left.segment, right.segment) &&
           left.coded == right.coded && left.crc_matches == right.crc_matches &&
           (left.payload == right.payload ||
            (one.request_has_other_key && other.request_has_other_key));
}

std::optional<answer> answer_in(const session::event &of) {
    answer one{.at_us = of.at_us};
    return std::visit(answer_reader{one}, of.what) ? std::optional(std::move(one)) : std::nullopt;
}

std::vector<answer> answers_of(const recording &from) {
    std::vector<answer> answers;
    open_requests requests;
    for (std::size_t at = 0; at < from.events.size(); ++at) {
        requests.note(from.events[at]);
        if (std::optional<answer> one = answer_in(from.events[at])) {
            one->event = at;
            one->request_has_other_key = requests.close(*one);
            answers.push_back(std::move(*one));
        }
    }
    mark_edges(answers, from);
    mark_brief_announcements(answers);
    return answers;
}

std::string subject_of(const answer &of) {
    switch (of.kind) {
    case answer_kind::frame:
        return fmt::format("{} {}", of.content.number, session::type_name(of.content.type));
    case answer_kind::bytes:
        return "bytes that are no frame";
    case answer_kind::closed:
        return "connection";
    case answer_kind::datagram:
        return fmt::format("{} to port {}", session::datagram_type_name(of.content.type), of.port);
    case answer_kind::control:
        return "engr_gatewayctl " + control::terminal_text(of.about);
    case answer_kind::ended:
        return "gateway";
    }
    return {};
}

std::string statement_of(const answer &of) {
    switch (of.kind) {
    case answer_kind::frame:
        return statement_of_frame(of.content);
    case answer_kind::bytes:
        return support::to_hex(of.text);
    case answer_kind::closed:
        return "closed";
    case answer_kind::datagram:
        return of.text.empty() ? statement_of_frame(of.content) : support::to_hex(of.text);
    case answer_kind::control:
        return control::terminal_text(of.text);
    case answer_kind::ended:
        return control::terminal_text(of.text);
    }
    return {};
}

std::string words_of(const answer &of) {
    const std::string statement = statement_of(of);
    return subject_of(of) + (statement.empty() ? "" : " ") + statement;
}

} // namespace replay
