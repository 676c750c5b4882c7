// engr_app: the installer's command line.
#include "base/failure.h"
#include "cli/complete.h"
#include "cli/globals.h"
#include "cli/help.h"
#include "cli/run.h"
#include "cli/settings.h"
#include "cli/usage.h"
#include "gateway/session.h"
#include "support/help_text.h"
#include "terminal/screen.h"
#include "verbs/verb.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace {

using namespace engr_app;

std::string notes() {
    std::string text = "Tables have a header; they are aligned on a terminal and separated by "
                       "tabs in a pipe.\n\n"
                       "$XDG_CONFIG_HOME/engr_app/config (~/.config/engr_app/config) may set "
                       "gateway, interface, key-file, listen and timeout, as in\n"
                       "  interface = \"eth0\"\n\n"
                       "Exit status:\n";
    for (const exit_status_meaning &one : exit_statuses()) {
        const std::string number = std::to_string(one.status);
        text +=
            std::string(5 - number.size(), ' ') + number + "  " + std::string(one.meaning) + '\n';
    }
    return text + "\nExamples:\n"
                  "  engr_app discover\n"
                  "  engr_app devices --gateway 192.168.1.20\n"
                  "  engr_app help channel set";
}

void declare_help(CLI::App &whole, std::string &shown) {
    const auto verb = std::make_shared<std::vector<std::string>>();
    CLI::App *parser = whole.add_subcommand("help", "show the help of a command");
    parser->add_option("COMMAND", *verb, "The command, as in: channel set");
    parser->footer("Examples:\n  engr_app help channel set");
    parser->callback([&whole, &shown, verb] { shown = help_of(whole, *verb); });
}

bool wants_json(std::span<char *const> arguments) {
    return std::ranges::any_of(arguments,
                               [](const char *one) { return std::string_view(one) == "--json"; });
}

// What only looks at the program: its help and its version.
int show_about(const std::string &text) {
    screen().output(text);
    return exit_success;
}

int run_command_line(std::span<char *const> arguments) {
    CLI::App whole("Commissions and maintains Zigbee gateways in engineering mode over the local "
                   "network.");
    whole.name("engr_app");
    set_help_layout(whole, support::help_columns());
    whole.require_subcommand(1);
    whole.fallthrough();   // global options may stand behind the verb as well
    whole.set_help_flag(); // none yet: each verb that is added would get its own
    for (const verb &one : verbs()) {
        add_verb(whole, one);
    }
    declare_help_flag(whole);
    whole.set_version_flag("--version", "engr_app " ENGR_VERSION, "Show the version");
    global_options options;
    declare_globals(whole, options);
    std::string help;
    declare_help(whole, help);
    whole.footer(notes()); // last, since verbs inherit it
    if (answer_about_command_line(whole, static_cast<int>(arguments.size()), arguments.data())) {
        return exit_success;
    }
    try {
        whole.parse(static_cast<int>(arguments.size()), arguments.data());
    } catch (const CLI::CallForHelp &) {
        return show_about(whole.help());
    } catch (const CLI::CallForVersion &version) {
        return show_about(std::string(version.what()) + '\n');
    } catch (const CLI::ParseError &problem) {
        throw wrong_usage(usage_sentence(whole, problem));
    }
    if (!help.empty()) {
        return show_about(help);
    }
    const named_verb chosen = verb_named_in(whole);
    if (!chosen.for_one_gateway && (options.all || options.gateways.size() > 1)) {
        throw wrong_usage(full_name(innermost_verb(whole)) +
                          ": it concerns no single gateway, so it goes with neither --all nor "
                          "several --gateway");
    }
    screen shown_on(options.quiet);
    console out(shown_on, options.json, options.verbose);
    apply_settings(whole, options, chosen.for_one_gateway, out);
    const int status = run_verb(chosen.work, options, shown_on);
    if (status == exit_success) {
        remember_given_ids(whole);
    }
    return status;
}

} // namespace

int main(int argc, char **argv) {
    const std::span<char *const> arguments(argv, static_cast<std::size_t>(argc));
    try {
        return run_command_line(arguments);
    } catch (const failure &failed) {
        screen shown_on;
        console(shown_on, wants_json(arguments), false).problem(failed.kind(), failed.what());
        return failed.exit_code();
    } catch (const std::exception &failed) {
        std::cerr << "engr_app: " << failed.what() << '\n';
        return exit_failed;
    }
}
