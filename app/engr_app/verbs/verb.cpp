// The list of verbs: a line here and a file NAME.cpp with declare_NAME make a verb.
#include "verbs/verb.h"

#include <algorithm>
#include <utility>

#include <CLI/CLI.hpp>

#define ENGR_APP_VERBS(VERB)                                                                       \
    VERB(discover, "list the gateways that announce themselves")                                   \
    VERB(info, "what is known of a gateway, whether it answers, whether the key is right")         \
    VERB(devices, "table of the gateway's devices, with their online state")                       \
    VERB(watch, "live reports, until Ctrl-C")                                                      \
    VERB(dp, "show, change and query data points of a device")                                     \
    VERB(channel, "show or change the radio channel")                                              \
    VERB(group, "change groups of devices and command them")                                       \
    VERB(scene, "run, save and delete scenes of a group, assign them to a panel")                  \
    VERB(linkage, "run linkage scenes, replace the set of them")                                   \
    VERB(bind, "register devices")                                                                 \
    VERB(unbind, "remove devices")                                                                 \
    VERB(token, "give the gateway the installer's token")                                          \
    VERB(wifi, "move the gateway to another Wi-Fi network")                                        \
    VERB(join, "let new devices join")                                                             \
    VERB(config, "push the configuration files, read one back")                                    \
    VERB(log, "fetch the log")                                                                     \
    VERB(upgrade, "install firmware on the gateway or on a device")                                \
    VERB(deactivate, "reset the gateway to \"not activated\"")                                     \
    VERB(provision, "give a gateway in access-point mode its Wi-Fi network")                       \
    VERB(site, "commission gateways by a plan, report what they have and what differs")            \
    VERB(ping, "measure how long the gateway takes to answer")                                     \
    VERB(raw, "send one frame of any type and show the answer")

namespace engr_app {

#define DECLARE_VERB(name, summary) verb_work declare_##name(CLI::App &parser);
ENGR_APP_VERBS(DECLARE_VERB)
#undef DECLARE_VERB

std::span<const verb> verbs() {
#define VERB_ENTRY(name, summary) {#name, summary, declare_##name},
    static constexpr verb all[] = {ENGR_APP_VERBS(VERB_ENTRY)};
#undef VERB_ENTRY
    return all;
}

verb_work add_subverbs(CLI::App &parser, const std::vector<verb> &subverbs) {
    parser.require_subcommand(1);
    std::vector<std::pair<const CLI::App *, verb_work>> works;
    for (const verb &subverb : subverbs) {
        CLI::App *own_parser = parser.add_subcommand(subverb.name, subverb.summary);
        works.emplace_back(own_parser, subverb.declare(*own_parser));
    }
    return [works = std::move(works)](gateway_session &session) {
        const auto given = std::ranges::find_if(
            works, [](const auto &candidate) { return candidate.first->parsed(); });
        return given->second(session); // the parser insists on one
    };
}

void concerns_no_gateway(CLI::App &parser) {
    parser.callback([&parser] {
        const CLI::App *whole = &parser;
        while (whole->get_parent() != nullptr) {
            whole = whole->get_parent();
        }
        if (whole->count("--all") > 0 || whole->count("--gateway") > 1) {
            throw CLI::ValidationError(parser.get_name(),
                                       "it concerns no single gateway, so it goes with neither "
                                       "--all nor several --gateway");
        }
    });
}

} // namespace engr_app
