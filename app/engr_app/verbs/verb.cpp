// The list of verbs: a line here and a file NAME.cpp with declare_NAME make a verb.
#include "verbs/verb.h"

#include <memory>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#define ENGR_APP_VERBS(VERB)                                                                       \
    VERB(discover, "list the gateways that announce themselves")                                   \
    VERB(use, "choose the gateway that later commands are for")                                    \
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
namespace {

/** The parser of a verb, with what the verb does. */
class verb_parser : public CLI::App {
  public:
    verb_parser(std::string summary, std::string name, CLI::App *above)
        : CLI::App(std::move(summary), std::move(name), above) {}

    named_verb about;
};

} // namespace

#define DECLARE_VERB(name, summary) verb_work declare_##name(CLI::App &parser);
ENGR_APP_VERBS(DECLARE_VERB)
#undef DECLARE_VERB

std::span<const verb> verbs() {
#define VERB_ENTRY(name, summary) {#name, summary, declare_##name},
    static constexpr verb all[] = {ENGR_APP_VERBS(VERB_ENTRY)};
#undef VERB_ENTRY
    return all;
}

void add_verb(CLI::App &above, const verb &added) {
    const auto parser = std::make_shared<verb_parser>(added.summary, added.name, &above);
    above.add_subcommand(parser);
    parser->footer(""); // that of a family is not about each of its verbs
    parser->about.work = added.declare(*parser);
}

verb_work add_subverbs(CLI::App &parser, const std::vector<verb> &subverbs) {
    parser.require_subcommand(1);
    for (const verb &subverb : subverbs) {
        add_verb(parser, subverb);
    }
    return {};
}

void concerns_no_gateway(CLI::App &parser) {
    dynamic_cast<verb_parser &>(parser).about.for_one_gateway = false;
}

named_verb verb_named_in(const CLI::App &whole) {
    const CLI::App *innermost = &whole;
    while (!innermost->get_subcommands().empty()) {
        innermost = innermost->get_subcommands().front();
    }
    return dynamic_cast<const verb_parser &>(*innermost).about;
}

} // namespace engr_app
