// channel: the gateway's radio channel.
#include "base/json_text.h"
#include "gateway/request.h"
#include "verbs/arguments.h"

#include <memory>

#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

namespace frame_type = lan_client::frame_type;

constexpr std::int64_t least_channel = 11;
constexpr std::int64_t greatest_channel = 26;

struct channel_arguments {
    std::int64_t channel = 0;
    bool force = false;
};

int get(gateway_session &session) {
    const std::string payload = ask_one(session, {.type = frame_type::get_channel});
    const json reply = parse_json(payload);
    const std::string channel = member_text(reply, "channel");
    if (channel.empty()) {
        throw malformed_answer("channel", payload);
    }
    return print_result(session, session.chosen().name() + " is on channel " + channel,
                        {{"channel", reply["channel"]}});
}

int set(gateway_session &session, const channel_arguments &given) {
    const bool known = given.channel >= least_channel && given.channel <= greatest_channel;
    if (!known && !given.force) {
        throw wrong_usage("channel set: channels are 11 to 26; --force sends " +
                          std::to_string(given.channel) + " all the same");
    }
    ask_one(session, json_request(frame_type::set_channel, {{"channel", given.channel}}));
    return print_result(session,
                        session.chosen().name() + " is now on channel " +
                            std::to_string(given.channel) +
                            "; its devices follow, which may take them a while",
                        {{"channel", given.channel}});
}

verb_work declare_channel_get(arguments &) {
    return get;
}

verb_work declare_channel_set(arguments &declared) {
    const auto given = std::make_shared<channel_arguments>();
    declared.required("N", given->channel, "The channel, 11 to 26");
    declared.flag("--force", given->force, "Send a channel that is out of range");
    return [given](gateway_session &session) { return set(session, *given); };
}

} // namespace

verb_work declare_channel(arguments &declared) {
    declared.notes("Examples:\n"
                   "  engr_app channel get\n"
                   "  engr_app channel set 15");
    return declared.subverbs({{"get", "show the radio channel", declare_channel_get},
                              {"set", "change the radio channel", declare_channel_set}});
}

} // namespace engr_app
