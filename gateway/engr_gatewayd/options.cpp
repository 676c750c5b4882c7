#include "options.h"

#include "data_dir.h"
#include "linux_port/port.h"
#include "support/completion.h"
#include "support/help_text.h"
#include "support/interfaces.h"
#include "support/manual_page.h"

#include <CLI/CLI.hpp>
#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <unistd.h>

namespace gatewayd {
namespace {

/**
 * Checks an address that the gateway is to serve.
 *
 * @return what is wrong with it; empty when nothing is
 */
std::string address_fault(const std::string &text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    if (inet_pton(AF_INET, text.c_str(), &address.sin_addr) != 1) {
        return fmt::format("'{}' is not an IPv4 address like 127.0.0.2", text);
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool is_local =
        bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return is_local ? "" : fmt::format("'{}' is not an address of this host", text);
}

/** What is wrong with a place for the console; empty when nothing is. */
std::string console_place_fault(const std::string &text) {
    return text.empty() || console::read_place(text, {"127.0.0.1", console::usual_port})
               ? ""
               : fmt::format("'{}' is not ADDRESS:PORT, ADDRESS or PORT, as in 127.0.0.1:{}", text,
                             console::usual_port);
}

/** A gateway on a loopback address of its own has its console there, too. */
console::place console_place_of(const std::string &text, const options &chosen) {
    const std::string served = served_address(chosen);
    const console::place usual{console::is_loopback(served) ? served : "127.0.0.1",
                               console::usual_port};
    return text.empty() ? usual : console::read_place(text, usual).value_or(usual);
}

std::vector<support::completion> value_completions(const std::string &kind) {
    std::vector<support::completion> found;
    if (kind == "IF") {
        for (const std::string &each : support::interface_names()) {
            found.push_back({each});
        }
    }
    return found;
}

/** Answers a shell that completes the command line, and the build that makes the manual page. */
bool answer_about_options(CLI::App &app, int count, char **arguments) {
    app.name("engr_gatewayd");
    return support::answer_completion_request(app, count, arguments, value_completions) ||
           support::answer_manual_page_request(app, "reference gateway with the LAN agent", count,
                                               arguments);
}

} // namespace

std::string served_address(const options &chosen) {
    return chosen.address.empty() ? linux_port::interface_address(chosen.interface).value_or("")
                                  : chosen.address;
}

parsed_options parse_options(int count, char **arguments) {
    options chosen;
    chosen.data_dir = control::default_data_dir();
    CLI::App app(
        "Runs the reference gateway with the LAN agent in the foreground until SIGINT or SIGTERM.");
    app.set_version_flag("--version", "engr_gatewayd " ENGR_VERSION);
    app.add_option("--interface", chosen.interface, "Network interface to serve (default: lo)")
        ->type_name("IF")
        ->check([](const std::string &name) { return support::interface_fault(name); });
    app.add_option("--address", chosen.address,
                   "Local address to serve, so that several gateways share a host (default: the "
                   "interface's)")
        ->type_name("ADDRESS")
        ->check([](const std::string &text) { return address_fault(text); });
    app.add_flag("--wait-for-address", chosen.waits_for_address,
                 "While another program has the address at the start, waits instead of ending");
    app.add_option("--data-dir", chosen.data_dir,
                   fmt::format("Directory of everything that is stored (default: {})",
                               control::default_data_dir_help))
        ->type_name("DIR");
    app.add_option("--site", chosen.site,
                   "What a new data directory begins with (default: a demo site)")
        ->type_name("FILE");
    app.add_option("--scenario", chosen.scenario, "How services and callbacks misbehave")
        ->type_name("FILE");
    app.add_option("--trace", chosen.trace,
                   "Appends one JSON line for every call of the agent, without secrets")
        ->type_name("FILE");
    CLI::Option *record =
        app.add_option("--record", chosen.record,
                       "Records the session with apps to a file, without secrets; engr_session "
                       "shows and exports it")
            ->type_name("FILE");
    app.add_flag("--record-secrets", chosen.records_secrets,
                 "Leaves passwords, tokens and the local key in what is recorded")
        ->needs(record);
    std::string console_place;
    const CLI::Option *console =
        app.add_option("--console", console_place,
                       fmt::format("Serves a page that shows and operates the gateway; PLACE is "
                                   "ADDRESS:PORT, ADDRESS or PORT (default: the gateway's own "
                                   "address on loopback, else 127.0.0.1, with port {})",
                                   console::usual_port))
            ->type_name("[PLACE]")
            ->expected(0, 1)
            ->check([](const std::string &text) { return console_place_fault(text); });
    app.add_option("--mode", chosen.mode,
                   "0: LAN server and discovery; 1: WeChat discovery (default: 0)")
        ->type_name("0|1")
        ->check(CLI::Range(0, 1));
    app.add_flag("--ap", chosen.access_point,
                 "Begins as an access point that waits for a Wi-Fi network's credentials");
    app.add_option("--log-level", chosen.log_level,
                   "Shows the log here, too, and keeps lines up to this level, 0 to 5 (default: "
                   "lines up to 2 go to the log file alone)")
        ->type_name("N")
        ->check(CLI::Range(0, 5));
    app.add_flag("--quiet", chosen.is_quiet, "Does not show what apps do");
    app.footer("Exit status: 0 stopped by a signal; 1 it could not run; 2 wrong usage or an "
               "unreadable file.");
    support::set_program_help(app, "engr_gatewayd [OPTIONS]");
    if (answer_about_options(app, count, arguments)) {
        return {.chosen = {}, .ends = true, .status = 0};
    }
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError &error) {
        return {.chosen = {}, .ends = true, .status = app.exit(error) == 0 ? 0 : exit_usage};
    }
    if (console->count() != 0) {
        chosen.console = console_place_of(console_place, chosen);
    }
    return {.chosen = chosen, .ends = false, .status = 0};
}

} // namespace gatewayd
