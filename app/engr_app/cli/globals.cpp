// Declarations of the global options.
#include "cli/globals.h"

#include "gateway/session.h"
#include "support/interfaces.h"

#include <CLI/CLI.hpp>

namespace engr_app {
namespace {

std::string check_key(const std::string &key) {
    // The key itself must not show up in a message.
    return key.size() == lan_client::key_bytes ? "" : "a local key has exactly 16 characters";
}

void declare_choice_of_gateway(CLI::App &whole, global_options &options) {
    CLI::Option *named =
        whole
            .add_option("--gateway", options.gateways,
                        "The gateway to talk to, by ADDRESS[:PORT] or by ID. Given several times, "
                        "the work is done with all of them at once. When left out: those in "
                        "$ENGR_GATEWAY (separated by commas), the one in the configuration file, "
                        "the one that engr_app use has chosen, or the only one that is heard")
            ->type_name("ADDRESS|ID")
            ->expected(1)
            ->take_all()
            ->allow_extra_args(false);
    whole
        .add_flag("--all", options.all,
                  "Work with all gateways that are heard, at once. One table, one exit status")
        ->excludes(named);
    whole
        .add_option("--interface", options.interface_name,
                    "Stay on this network interface. When left out: $ENGR_INTERFACE, the one in "
                    "the configuration file, or all that are up")
        ->type_name("IF")
        ->check(CLI::Validator(support::interface_fault, "", "interface"));
}

void declare_keys(CLI::App &whole, global_options &options) {
    whole
        .add_option("--local-key", options.local_key,
                    "Key of the activated gateway, 16 characters. No other is used then. In the "
                    "environment variable no process list shows it")
        ->type_name("KEY")
        ->envname("ENGR_LOCAL_KEY")
        ->check(CLI::Validator(check_key, "", "key"));
    whole
        .add_option("--key-file", options.key_file,
                    "Keys by gateway. Lines \"ID KEY\" or JSON {\"ID\": \"KEY\"}; --local-key "
                    "holds for those that are not in it")
        ->type_name("FILE");
    whole
        .add_option("--names", options.names_file,
                    "Your names of devices, rooms and data points, as JSON; see engr_app help "
                    "devices (default: ~/.config/engr_app/names.json)")
        ->type_name("FILE");
    whole.add_flag("--accept-deactivated", options.accept_deactivated,
                   "Go on with a gateway that answers without the local key given, as one does "
                   "that was deactivated meanwhile. Everything, tokens and passwords too, is then "
                   "protected only by a key that every app knows, and anyone on the network can "
                   "pose as the gateway");
}

void declare_times(CLI::App &whole, global_options &options) {
    whole.add_option("--timeout", options.timeout_s, "How long to wait for an answer (default 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
    whole
        .add_option("--listen", options.listen_s,
                    "How long to listen for gateways (default 6). Each announces itself every 5 "
                    "seconds")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 86400.0));
}

void declare_output(CLI::App &whole, global_options &options) {
    whole.add_flag("--json", options.json,
                   "Results as one JSON document. Failures too, as {\"error\": {\"kind\", "
                   "\"message\"}}; with several gateways one array of {\"gateway\", \"exit\", "
                   "\"result\" or \"error\"}");
    CLI::Option *quiet =
        whole.add_flag("-q,--quiet", options.quiet, "Show only results and errors");
    whole.add_flag("-v,--verbose", options.verbose, "Show every frame in words on standard error")
        ->excludes(quiet);
    CLI::Option *record =
        whole
            .add_option("--record", options.record_file,
                        "Record the session with gateways to FILE, without keys, passwords and "
                        "tokens; engr_session shows and exports it")
            ->type_name("FILE");
    whole
        .add_flag("--record-secrets", options.records_secrets,
                  "Leave keys, passwords and tokens in what is recorded")
        ->needs(record);
}

} // namespace

void declare_globals(CLI::App &whole, global_options &options) {
    declare_choice_of_gateway(whole, options);
    declare_keys(whole, options);
    declare_times(whole, options);
    declare_output(whole, options);
}

} // namespace engr_app
