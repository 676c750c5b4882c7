// channel: the gateway's radio channel.
#include "base/json_text.h"
#include "gateway/request.h"
#include "verbs/consent.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

namespace frame_type = lan_client::frame_type;

constexpr int64_t least_channel = 11;
constexpr int64_t greatest_channel = 26;

struct channel_arguments {
    int64_t channel = 0;
    bool force = false;
    consent asked;
};

int get_channel(gateway_session &session) {
    const std::string payload = ask_one(session, {.type = frame_type::get_channel});
    const json reply = parse_json(payload);
    const std::string channel = member_text(reply, "channel");
    if (channel.empty()) {
        throw malformed_answer("channel", payload);
    }
    return print_result(session,
                        fmt::format("{} is on channel {}", session.chosen().name(), channel),
                        {{"channel", reply["channel"]}});
}

int set_channel(gateway_session &session, channel_arguments &given) {
    const bool known = given.channel >= least_channel && given.channel <= greatest_channel;
    if (!known && !given.force) {
        throw wrong_usage(fmt::format(
            "channel set: channels are 11 to 26; use --force to send {} anyway", given.channel));
    }
    given.asked.require(session, fmt::format("Change to radio channel {}", given.channel));
    ask_one(session, json_request(frame_type::set_channel, {{"channel", given.channel}}));
    return print_result(
        session,
        fmt::format("{} is now on channel {}; its devices follow, which may take them a while",
                    session.chosen().name(), given.channel),
        {{"channel", given.channel}});
}

verb_work declare_channel_get(CLI::App &) {
    return get_channel;
}

verb_work declare_channel_set(CLI::App &parser) {
    const auto given = std::make_shared<channel_arguments>();
    parser.add_option("N", given->channel, "The channel, 11 to 26")->required();
    parser.add_flag("--force", given->force, "Send a channel that is out of range");
    given->asked.declare(parser, asked_runs::with_all);
    return with_arguments(given, set_channel);
}

} // namespace

verb_work declare_channel(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app channel get\n"
                  "  engr_app channel set 15");
    return add_subverbs(parser, {{"get", "show the radio channel", declare_channel_get},
                                 {"set", "change the radio channel", declare_channel_set}});
}

} // namespace engr_app
