// engr_session: shows, checks and exports session files.
#include "lan_client/frame_types.h"
#include "pcapng.h"
#include "session/reader.h"
#include "session/start.h"
#include "story.h"
#include "support/completion.h"
#include "support/help_text.h"
#include "support/input_error.h"
#include "support/manual_page.h"
#include "support/numbers.h"
#include "support/terminal.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <variant>

namespace engr_session {
namespace {

constexpr int exit_incomplete = 1; /**< or the output could not be written */
constexpr int exit_usage = 2;

/** What the command line says. */
struct arguments {
    std::string file;
    uint32_t client = 0; /**< 0: all */
    std::string type;    /**< empty: all */
    bool everything = false;
    std::string pcapng;
};

int complain(const std::string &message, int status) {
    std::cerr << "engr_session: " << message << '\n';
    return status;
}

/** Columns of a terminal; in a pipe or a file lines stay whole. */
std::size_t output_columns() {
    return support::terminal_columns(STDOUT_FILENO).value_or(SIZE_MAX);
}

std::optional<uint32_t> wanted_type(const std::string &given) {
    if (given.empty()) {
        return std::nullopt;
    }
    if (const lan_client::frame_type_info *known = lan_client::find_frame_type(given)) {
        return known->number;
    }
    return support::need_whole_number<uint32_t>("--type", given);
}

/** What speaks against a recording that was read to its end; empty: nothing. */
std::string fault_of(const session::reader &read, uint64_t lost_events) {
    if (lost_events != 0) {
        return fmt::format("{} events are missing, which came faster than they could be written",
                           lost_events);
    }
    if (read.breaks_off()) {
        return fmt::format("line {} breaks off", read.line_number() + 1);
    }
    return read.is_complete() ? "" : "it has no end: the program that recorded it was killed";
}

int show(const arguments &given) {
    session::reader from(given.file);
    story_filter filter{
        .client = {}, .type = wanted_type(given.type), .everything = given.everything};
    if (given.client != 0) {
        filter.client = given.client;
    }
    const std::size_t columns = output_columns();
    std::cout << story_head() << '\n';
    std::optional<uint64_t> before_us;
    uint64_t lost_events = 0;
    while (const std::optional<session::event> what = from.next()) {
        const auto *gap = std::get_if<session::lost>(&what->what);
        lost_events += gap == nullptr ? 0 : gap->events;
        if (filter.wants(*what)) {
            std::cout << story_line(*what, before_us, columns) << '\n';
            before_us = what->at_us;
        }
    }
    if (const std::string fault = fault_of(from, lost_events); !fault.empty()) {
        std::cout << std::flush;
        complain(given.file + ": " + fault, 0);
    }
    return 0;
}

int check(const arguments &given) {
    session::reader from(given.file);
    std::map<std::string, uint64_t> counts;
    uint64_t last_us = 0;
    uint64_t lost_events = 0;
    uint64_t events = 0;
    while (const std::optional<session::event> what = from.next()) {
        last_us = what->at_us;
        ++events;
        counts["connections"] += std::holds_alternative<session::connected>(what->what) ? 1 : 0;
        counts["frames"] += std::holds_alternative<session::frame>(what->what) ? 1 : 0;
        counts["datagrams"] += std::holds_alternative<session::datagram>(what->what) ? 1 : 0;
        const auto *gap = std::get_if<session::lost>(&what->what);
        lost_events += gap == nullptr ? 0 : gap->events;
    }
    const session::header &start = from.start();
    std::cout << fmt::format("{}: recorded by {} {} from {} on, {:.3f} s, {} secrets\n"
                             "{} events, among them {} connections, {} frames and {} datagrams\n",
                             given.file, start.program, start.version, start.started,
                             static_cast<double>(last_us) / 1e6,
                             start.has_secrets ? "with" : "without", events, counts["connections"],
                             counts["frames"], counts["datagrams"]);
    if (start.seeds != session::built_in_fingerprints()) {
        std::cout << "its programs were built with other key seeds than this one\n";
    }
    const std::string fault = fault_of(from, lost_events);
    return fault.empty() ? 0 : complain(given.file + ": " + fault, exit_incomplete);
}

int export_capture(const arguments &given) {
    session::reader from(given.file);
    umask(077); // it may have secrets
    std::ofstream out(given.pcapng, std::ios::binary | std::ios::trunc);
    if (!out) {
        return complain(
            fmt::format("{}: cannot be written: {}", given.pcapng, std::strerror(errno)),
            exit_incomplete);
    }
    pcapng_writer capture(out, from.start());
    uint64_t lost_events = 0;
    while (const std::optional<session::event> what = from.next()) {
        const auto *gap = std::get_if<session::lost>(&what->what);
        lost_events += gap == nullptr ? 0 : gap->events;
        capture.add(*what);
    }
    out.close();
    if (!out) {
        return complain(given.pcapng + ": cannot be written", exit_incomplete);
    }
    std::cout << fmt::format("{} packets; the dissector reads them with this preference:\n",
                             capture.packets());
    std::string keys;
    for (const std::string &gateway : capture.gateways()) {
        keys += fmt::format("{}{}={}", keys.empty() ? "" : " ", gateway, from.start().key);
    }
    std::cout << fmt::format("engr_lan.local_keys:{}\n", keys);
    if (const std::string fault = fault_of(from, lost_events); !fault.empty()) {
        std::cout << std::flush;
        complain(given.file + ": " + fault, 0);
    }
    return 0;
}

/** Declares the verbs; the work of the one that was given is in `work` after the parsing. */
void declare_verbs(CLI::App &app, arguments &given, int (*&work)(const arguments &)) {
    const auto add = [&](const char *name, const char *help, int (*done)(const arguments &)) {
        CLI::App *verb = app.add_subcommand(name, help);
        verb->add_option("FILE", given.file, "A session file")->required()->type_name("");
        verb->callback([&work, done] { work = done; });
        support::set_program_help(*verb, fmt::format("engr_session {} [OPTIONS] FILE", name));
        return verb;
    };
    CLI::App *shown = add("show", "Shows the story, a line for each event", show);
    shown->add_option("--client", given.client, "Only the connection of that number")
        ->type_name("N")
        ->check(CLI::Range(1U, UINT32_MAX));
    shown
        ->add_option("--type", given.type,
                     "Only frames of that type, a name such as dev_list or a number")
        ->type_name("TYPE");
    shown->add_flag("--all", given.everything, "Calls into services and log lines, too");
    add("check", "Reads the whole file, and tells what it has and whether it is complete", check);
    CLI::App *exported =
        add("export", "Writes the packets for Wireshark, and tells the key", export_capture);
    exported->add_option("--pcapng", given.pcapng, "The capture file to write")
        ->type_name("FILE")
        ->required();
}

int run(int count, char **words) {
    arguments given;
    int (*work)(const arguments &) = nullptr;
    CLI::App app("Shows, checks and exports what engr_gatewayd and engr_app record with --record.");
    app.name("engr_session");
    app.set_version_flag("--version", "engr_session " ENGR_VERSION);
    app.require_subcommand(0, 1);
    support::set_program_help(app, "engr_session VERB [OPTIONS] FILE");
    declare_verbs(app, given, work);
    app.footer("Exit status: 0 done; 1 the recording is not complete (check), or the output cannot "
               "be written; 2 wrong usage or an unreadable file.");
    if (support::answer_completion_request(app, count, words, {}) ||
        support::answer_manual_page_request(app, "show, check and export recorded sessions", count,
                                            words)) {
        return 0;
    }
    try {
        app.parse(count, words);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : exit_usage;
    }
    if (work == nullptr) {
        return complain("a verb is missing; see engr_session --help", exit_usage);
    }
    const int status = work(given);
    std::cout << std::flush;
    return std::cout ? status : complain("the output could not be written", exit_incomplete);
}

} // namespace
} // namespace engr_session

int main(int count, char **words) {
    try {
        return engr_session::run(count, words);
    } catch (const support::input_error &error) {
        return engr_session::complain(error.what(), engr_session::exit_usage);
    } catch (const std::exception &error) {
        return engr_session::complain(error.what(), engr_session::exit_incomplete);
    }
}
