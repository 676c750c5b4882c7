#include "program/options.h"

#include "support/completion.h"
#include "support/help_text.h"
#include "support/manual_page.h"

#include <CLI/CLI.hpp>

#include <vector>

namespace replay {
namespace {

const std::vector<std::string> &forms() {
    static const std::vector<std::string> all{"fuzz-seed", "test", "scenario"};
    return all;
}

std::vector<support::completion> value_completions(const std::string &kind) {
    std::vector<support::completion> found;
    if (kind == "FORM") {
        for (const std::string &each : forms()) {
            found.push_back({each});
        }
    }
    return found;
}

bool answer_about_options(CLI::App &app, int count, char **arguments) {
    app.name("engr_replay");
    return support::answer_completion_request(app, count, arguments, value_completions) ||
           support::answer_manual_page_request(
               app, "play a recorded session and compare what the agent answers", count, arguments);
}

void declare_options(CLI::App &app, options &into) {
    app.set_version_flag("--version", "engr_replay " ENGR_VERSION);
    app.add_option("SESSION", into.session, "Session file, recorded at a gateway")
        ->type_name("FILE")
        ->required();
    app.add_flag("--json", into.writes_json, "Prints the report as one JSON object");
    app.add_flag("--all", into.shows_all, "Lists every difference, not the first one alone");
    CLI::Option *answers =
        app.add_flag("--answers", into.shows_answers,
                     "Prints what this agent answers, as a session file, and compares nothing");
    CLI::Option *shrinks =
        app.add_flag("--shrink", into.shrinks,
                     "Writes the session reduced to what leads to the first difference");
    CLI::Option *form =
        app.add_option("--as", into.form,
                       "Writes the session in another form: fuzz-seed, an input of fuzz_server; "
                       "test, a test of the agent in C++; scenario, a scenario file and a site "
                       "file for engr_gatewayd")
            ->type_name("FORM")
            ->check(CLI::IsMember(forms()));
    app.add_option("--out", into.out,
                   "File to write (default: SESSION.shrunk, SESSION.fuzz-seed, SESSION.test.cpp, "
                   "SESSION.scenario.json with SESSION.site.json); - is standard output")
        ->type_name("FILE");
    app.add_option("--compare-with", into.other,
                   "Plays the session with another build's engr_replay, too, and compares the "
                   "two builds instead of the record")
        ->type_name("FILE");
    app.add_option("--client", into.client,
                   "The app whose bytes become a fuzz seed (default: the one that sent most)")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    app.add_option("--site", into.site, "Takes the place of the recorded gateway's site")
        ->type_name("FILE");
    app.add_option("--scenario", into.scenario, "Takes the place of the recorded scenario")
        ->type_name("FILE");
    app.add_option("--seed", into.seed,
                   "Decides what the simulated machine may decide, such as which thread goes "
                   "first (default: 1)")
        ->type_name("N");
    answers->excludes(shrinks)->excludes(form);
    shrinks->excludes(form);
}

} // namespace

parsed_options parse_options(int count, char **arguments) {
    parsed_options parsed;
    CLI::App app("Plays a recorded session into the agent, in virtual time, and tells where it "
                 "answers differently from the record.");
    declare_options(app, parsed.chosen);
    support::set_program_help(app, "engr_replay [OPTIONS] SESSION");
    app.footer("Exit status: 0 the agent answers as recorded, or a file was written; 1 it answers "
               "differently, or the work failed; 2 wrong usage or an unreadable file.");
    if (answer_about_options(app, count, arguments)) {
        parsed.ends = true;
        return parsed;
    }
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError &error) {
        parsed.ends = true;
        parsed.status = app.exit(error) == 0 ? 0 : exit_usage;
    }
    return parsed;
}

} // namespace replay
