// engr_app: the installer's command line.
#include "base/escape.h"
#include "base/failure.h"
#include "cli/complete.h"
#include "cli/run.h"
#include "gateway/session.h"
#include "support/interfaces.h"
#include "terminal/screen.h"
#include "verbs/verb.h"

#include <exception>
#include <iostream>
#include <map>
#include <string>

#include <CLI/CLI.hpp>

namespace {

using namespace engr_app;

std::string check_key(const std::string &key) {
    // The key itself must not show up in a message.
    return key.size() == lan_client::key_bytes ? "" : "a local key has exactly 16 characters";
}

void declare_globals(CLI::App &app, global_options &options) {
    CLI::Option *named =
        app.add_option("--gateway", options.gateways,
                       "The gateway to talk to, by ADDRESS[:PORT] (no waiting for discovery) or by "
                       "ID; when left out, the only one that is found. Given several times, the "
                       "work is done with all of them at once")
            ->type_name("ADDRESS|ID")
            ->expected(1)
            ->take_all();
    app.add_flag("--all", options.all,
                 "Do the work with all gateways that are found, at once: one table, one exit "
                 "status")
        ->excludes(named);
    app.add_option("--local-key", options.local_key,
                   "Key of the activated gateway, 16 characters; no other is used then. In the "
                   "environment variable no process list shows it")
        ->type_name("KEY")
        ->envname("ENGR_LOCAL_KEY")
        ->check(CLI::Validator(check_key, "", "key"));
    app.add_flag("--accept-deactivated", options.accept_deactivated,
                 "Go on with a gateway that answers without the local key given, as one does that "
                 "was deactivated meanwhile. Everything, tokens and passwords too, is then "
                 "protected only by a key that every app knows, and anyone on the network can "
                 "pose as the gateway");
    app.add_option("--key-file", options.key_file,
                   "Keys by gateway: lines \"ID KEY\" or JSON {\"ID\": \"KEY\"}; --local-key holds "
                   "for those that are not in it")
        ->type_name("FILE");
    app.add_option("--names", options.names_file,
                   "Your names of devices, rooms and data points, as JSON; see engr_app devices "
                   "--help (default: ~/.config/engr_app/names.json)")
        ->type_name("FILE");
    app.add_option("--interface", options.interface_name,
                   "Network interface to stay on; on lo only gateways of this machine are reached")
        ->type_name("IF")
        ->capture_default_str()
        ->check(CLI::Validator(support::interface_fault, "", "interface"));
    app.add_option("--timeout", options.timeout_s,
                   "How long to listen for gateways (default 6) and to wait for an answer "
                   "(default 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
    app.add_flag("--json", options.json,
                 "Results as one JSON document; failures too, as {\"error\": {\"kind\", "
                 "\"message\"}}. With several gateways one array of {\"gateway\", \"exit\", "
                 "\"result\" or \"error\"}");
    app.add_flag("-v,--verbose", options.verbose, "Show every frame in words on standard error");
    app.add_option("--record", options.record_file,
                   "Write every frame to FILE, one JSON line each; keys, passwords and tokens are "
                   "left out")
        ->type_name("FILE");
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Commissions and maintains Zigbee gateways in engineering mode over the local "
                 "network.");
    app.name("engr_app");
    app.set_version_flag("--version", "engr_app " ENGR_VERSION);
    app.require_subcommand(1);
    app.fallthrough(); // global options may stand behind the verb as well
    app.footer("Tables have a header; they are aligned on a terminal and tab-separated in a pipe.\n"
               "Exit status: 0 success (with several gateways: of all), 1 the work failed, "
               "2 wrong usage.\n\n"
               "Examples:\n"
               "  engr_app discover\n"
               "  engr_app devices --gateway 192.168.1.20 --interface eth0\n"
               "  engr_app VERB --help");
    global_options options;
    declare_globals(app, options);
    std::map<const CLI::App *, verb_work> works;
    for (const verb &one : verbs()) {
        CLI::App *parser = app.add_subcommand(one.name, one.summary);
        works[parser] = one.declare(*parser);
    }
    if (answer_about_command_line(app, argc, argv)) {
        return exit_success;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &problem) {
        if (app.get_subcommands().empty() && !app.remaining().empty()) {
            std::cerr << "engr_app: " << escape_for_terminal(app.remaining().front(), 100)
                      << " is no subcommand; engr_app --help lists them\n";
            return exit_wrong_usage;
        }
        return app.exit(problem) == 0 ? exit_success : exit_wrong_usage;
    }
    screen shown_on;
    const int status = run_verb(works.at(app.get_subcommands().front()), options, shown_on);
    if (status == exit_success) {
        remember_given_ids(app);
    }
    return status;
}
