#include "play/surroundings.h"

#include "compare/acts.h"
#include "lan_client/frame_types.h"
#include "lan_client/json.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <ctime>

namespace replay {
namespace {

namespace frame_type = lan_client::frame_type;

/** The text that was handed out to a request. */
std::string log_in_answer(const recording &of, std::size_t request, const session::frame &asked) {
    std::string text;
    for (std::size_t at = request + 1; at < of.events.size(); ++at) {
        const auto *answer = std::get_if<session::frame>(&of.events[at].what);
        if (answer == nullptr || answer->client != asked.client ||
            answer->content.type != frame_type::get_log) {
            continue;
        }
        if (answer->from == session::side::app || answer->content.number != asked.content.number) {
            break;
        }
        if (answer->content.segment) {
            text += answer->content.payload;
        }
    }
    return text;
}

} // namespace

session_clock::session_clock(const session::header &of) {
    std::tm utc{};
    int milliseconds = 0;
    if (std::sscanf(of.started.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d.%3d", &utc.tm_year, &utc.tm_mon,
                    &utc.tm_mday, &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &milliseconds) < 6) {
        return;
    }
    utc.tm_year -= 1900;
    utc.tm_mon -= 1;
    posix_s_ = static_cast<uint32_t>(timegm(&utc));
    fraction_ms_ = static_cast<uint64_t>(milliseconds);
}

started_options options_of(const session::header &of) {
    const auto options = nlohmann::json::parse(of.options, nullptr, false);
    started_options read;
    if (options.is_object()) {
        read.mode = options.contains("mode") && options["mode"].is_number_integer()
                        ? options["mode"].get<int32_t>()
                        : 0;
        read.access_point = options.contains("ap") && options["ap"] == true;
        read.address = lan_client::member_text(options, "address");
    }
    return read;
}

std::string address_of(const recording &of) {
    if (const std::string address = options_of(of.begin).address; !address.empty()) {
        return address;
    }
    for (const session::event &each : of.events) {
        const auto *sent = std::get_if<session::datagram>(&each.what);
        const auto *content =
            sent != nullptr ? std::get_if<session::frame_content>(&sent->content) : nullptr;
        if (content != nullptr && content->type == frame_type::udp_discovery) {
            return lan_client::member_text(lan_client::parse_json(content->payload), "ip");
        }
    }
    return "127.0.0.1";
}

std::optional<uint64_t> end_of_installation(const recording &of, const session_clock &clock,
                                            uint64_t from_ms) {
    constexpr std::string_view notice_of_end = "ug_notify_cb";
    std::optional<uint64_t> last_act_ms;
    for (const session::event &each : of.events) {
        const uint64_t at_ms = clock.world_ms(each.at_us);
        const auto *call = std::get_if<session::call>(&each.what);
        if (at_ms >= from_ms && call != nullptr && call->name == notice_of_end) {
            return at_ms + (last_act_ms == at_ms ? 1 : 0);
        }
        last_act_ms = is_act(each) ? at_ms : last_act_ms;
    }
    return std::nullopt;
}

void recorded_logs::note_request(const session::event &each) {
    const auto *asked = std::get_if<session::frame>(&each.what);
    if (asked != nullptr && asked->content.type == frame_type::get_log) {
        const auto place = static_cast<std::size_t>(&each - of_.events.data());
        if (std::string text = log_in_answer(of_, place, *asked); !text.empty()) {
            text_ = std::move(text);
        }
    }
}

std::string recorded_logs::newest(std::size_t bytes_max) const {
    return text_.size() <= bytes_max ? text_ : text_.substr(text_.size() - bytes_max);
}

} // namespace replay
