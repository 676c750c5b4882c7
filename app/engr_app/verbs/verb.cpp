// The list of verbs: a line here and a file NAME.cpp with declare_NAME make a verb.
#include "verbs/verb.h"

#include <cstddef>
#include <memory>
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
    verb_parser(const verb &parsed, CLI::App *above)
        : CLI::App(parsed.summary, parsed.name, above), declare_(parsed.declare) {
        footer(""); // that of a family is not about each of its verbs
        preparse_callback([this](std::size_t) { declare(); });
    }

    /** Declares the verb's options unless that was done before. Those of all verbs would take a
     * third of a short run, and a command line names one. */
    void declare() {
        if (const auto declare = std::exchange(declare_, nullptr)) {
            declare_help_flag(*this);
            about.work = declare(*this);
        }
    }

    named_verb about;

  private:
    verb_work (*declare_)(CLI::App &parser);
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
    above.add_subcommand(std::make_shared<verb_parser>(added, &above));
}

void declare_help_flag(CLI::App &parser) {
    parser.set_help_flag("-h,--help", "Show this help");
}

void declare_verb(CLI::App &parser) {
    if (auto *const of_verb = dynamic_cast<verb_parser *>(&parser)) {
        of_verb->declare();
    }
}

void declare_all_verbs(CLI::App &above) {
    for (CLI::App *const each : above.get_subcommands(std::function<bool(CLI::App *)>())) {
        declare_verb(*each);
        declare_all_verbs(*each);
    }
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
