#include "story.h"

#include "support/escape.h"

#include <variant>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace engr_session {
namespace {

/** What an event shows: on which connection, which way, and what. */
struct shown_event {
    std::string client;
    std::string direction;
    std::string what;
};

std::string content_text(const session::frame_content &content, const std::string &name) {
    std::string text = fmt::format("{} {}", name, content.number);
    if (content.ret && *content.ret != 0) {
        text += fmt::format(" ret {}", *content.ret);
    }
    if (content.segment) {
        text += fmt::format(" segment {} of {}", content.segment->number, content.segment->count);
    }
    if (!content.crc_matches) {
        text += " wrong CRC";
    }
    if (content.coded == session::coding::unknown) {
        return text +
               fmt::format("  {} bytes that no key at hand decrypts", content.payload.size());
    }
    return content.payload.empty() ? text : text + "  " + content.payload;
}

const char *arrow(session::side from) {
    return from == session::side::app ? ">" : "<";
}

struct event_shower {
    shown_event operator()(const session::connected &of) const {
        return {std::to_string(of.client), "", "connected: " + of.peer};
    }
    shown_event operator()(const session::closed &of) const {
        return {std::to_string(of.client), "",
                of.by ? fmt::format("closed by the {}", session::side_name(*of.by)) : "closed"};
    }
    shown_event operator()(const session::frame &of) const {
        return {std::to_string(of.client), arrow(of.from),
                content_text(of.content, session::type_name(of.content.type))};
    }
    shown_event operator()(const session::raw_bytes &of) const {
        return {std::to_string(of.client), arrow(of.from),
                fmt::format("{} bytes that are no frame", of.bytes.size())};
    }
    shown_event operator()(const session::datagram &of) const {
        const auto *content = std::get_if<session::frame_content>(&of.content);
        return {"", arrow(of.from),
                content == nullptr
                    ? fmt::format("datagram of {} bytes that is no frame, port {}",
                                  std::get<std::string>(of.content).size(), of.port)
                    : content_text(*content, session::datagram_type_name(content->type))};
    }
    shown_event operator()(const session::call &of) const {
        return {"", "", fmt::format("call {} {} = {}", of.name, of.arguments, of.result)};
    }
    shown_event operator()(const session::control &of) const {
        return {"", "", fmt::format("control: {}  {}", fmt::join(of.line, " "), of.answer)};
    }
    shown_event operator()(const session::log_line &of) const { return {"", "", "log " + of.text}; }
    shown_event operator()(const session::activity &of) const { return {"", "", of.text}; }
    shown_event operator()(const session::lost &of) const {
        return {"", "", fmt::format("{} events are missing here", of.events)};
    }
    shown_event operator()(const session::ended &) const { return {"", "", "end"}; }
};

std::optional<uint32_t> type_of(const session::event &what) {
    if (const auto *of = std::get_if<session::frame>(&what.what)) {
        return of->content.type;
    }
    const auto *of = std::get_if<session::datagram>(&what.what);
    const auto *content =
        of == nullptr ? nullptr : std::get_if<session::frame_content>(&of->content);
    return content == nullptr ? std::nullopt : std::optional(content->type);
}

std::string delta_text(uint64_t time_us) {
    return time_us < 1'000'000 ? fmt::format("+{:.3f} ms", static_cast<double>(time_us) / 1e3)
                               : fmt::format("+{:.3f} s", static_cast<double>(time_us) / 1e6);
}

std::string columns_text(const std::string &time, const std::string &delta,
                         const std::string &client, const std::string &direction,
                         const std::string &what) {
    return fmt::format("{:>9}  {:>10}  {:>6} {:1} {}", time, delta, client, direction, what);
}

} // namespace

bool story_filter::wants(const session::event &what) const {
    if (client && session::client_of(what) != *client) {
        return false;
    }
    if (type && type_of(what) != type) {
        return false;
    }
    return everything || !(std::holds_alternative<session::call>(what.what) ||
                           std::holds_alternative<session::log_line>(what.what));
}

std::string story_head() {
    return columns_text("SECONDS", "SINCE", "CLIENT", " ", "WHAT");
}

std::string story_line(const session::event &what, std::optional<uint64_t> before_us,
                       std::size_t columns) {
    const shown_event shown = std::visit(event_shower{}, what.what);
    const std::string line =
        columns_text(fmt::format("{:.3f}", static_cast<double>(what.at_us) / 1e6),
                     before_us ? delta_text(what.at_us - *before_us) : "", shown.client,
                     shown.direction, shown.what);
    return support::escape_for_terminal(line, columns);
}

} // namespace engr_session
