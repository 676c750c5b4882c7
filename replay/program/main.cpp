// engr_replay: plays a recorded session into the agent, and tells where it answers differently.
#include "compare/comparison.h"
#include "compare/files.h"
#include "exports/exports.h"
#include "gateway_services/scenario.h"
#include "gateway_services/site.h"
#include "play/other_build.h"
#include "play/process.h"
#include "program/options.h"
#include "report/report.h"
#include "report/story.h"
#include "shrink/reductions.h"
#include "shrink/shrink.h"
#include "support/files.h"
#include "support/input_error.h"
#include "support/terminal.h"
#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>

namespace replay {
namespace {

constexpr std::size_t pipe_columns = 120;
/** Rows of the table of differences: of two builds, and with --all. */
constexpr std::size_t few_rows = 20;
constexpr std::size_t all_rows = 10'000;

/** The session, what the command line says about it, and how it is played. */
struct job {
    options chosen;
    recording recorded;
    play_options how;
};

/** Says what is wrong with a site or a scenario, and where, before it is played. */
void check_files(const job &of) {
    const auto named = [&](const std::string &file, const char *member) {
        return file.empty() ? of.chosen.session + ": " + member : file;
    };
    if (const std::string &site = of.how.site.empty() ? of.recorded.begin.site : of.how.site;
        !site.empty()) {
        (void)gateway::parse_site(site, named(of.chosen.site, "site"));
    }
    if (const std::string &scenario =
            of.how.scenario.empty() ? of.recorded.begin.scenario : of.how.scenario;
        !scenario.empty()) {
        (void)gateway::parse_scenario(scenario, named(of.chosen.scenario, "scenario"));
    }
}

/** Ends a recording where happenings of it were lost: nobody knows what the agent was asked. */
void cut_at_loss(recording &of, const std::string &name) {
    const auto lost = std::find_if(of.events.begin(), of.events.end(), [](const auto &each) {
        return std::holds_alternative<session::lost>(each.what);
    });
    if (lost != of.events.end()) {
        std::fprintf(stderr,
                     "engr_replay: %s: happenings were lost at %s; what follows is not "
                     "played\n",
                     name.c_str(), time_text(lost->at_us).c_str());
        of.events.erase(lost, of.events.end());
    }
}

job make_job(const options &chosen) {
    job made{.chosen = chosen,
             .recorded = read_recording(chosen.session),
             .how = {.seed = chosen.seed, .site = {}, .scenario = {}}};
    if (!chosen.site.empty()) {
        made.how.site = support::read_file(chosen.site);
    }
    if (!chosen.scenario.empty()) {
        made.how.scenario = support::read_file(chosen.scenario);
    }
    if (made.recorded.begin.recorded_by == session::side::app && made.how.site.empty()) {
        throw support::input_error(fmt::format(
            "{} was recorded at an app, which does not know its gateway; give one with --site",
            chosen.session));
    }
    check_files(made);
    cut_at_loss(made.recorded, chosen.session);
    return made;
}

/** The two sides that a job compares: the record, or another build, and this agent. */
struct comparison_result {
    recording expected; /**< empty: the record's own */
    recording got;
    std::vector<difference> differences;
};

comparison_result compare_sides(const job &of, const recording &played) {
    play_result mine = play(played, of.how);
    const uint64_t end_us = end_of(played);
    if (of.chosen.other.empty()) {
        return {.expected = {},
                .got = mine.happened,
                .differences = compare(answers_of(played), answers_of(mine), end_us)};
    }
    play_result others = play_with(of.chosen.other, played, of.how);
    return {.expected = others.happened,
            .got = mine.happened,
            .differences = compare(answers_of(others), answers_of(mine), end_us)};
}

std::size_t output_columns() {
    return std::max<std::size_t>(support::terminal_columns(STDOUT_FILENO).value_or(pipe_columns),
                                 40);
}

int report(const job &of) {
    const comparison_result result = compare_sides(of, of.recorded);
    const bool is_two_builds = !of.chosen.other.empty();
    const findings found{.session = of.chosen.session,
                         .recorded = &of.recorded,
                         .expected = {is_two_builds ? "other build" : "recorded",
                                      is_two_builds ? &result.expected : &of.recorded},
                         .got = {is_two_builds ? "this build" : "this agent", &result.got},
                         .differences = result.differences};
    if (of.chosen.writes_json) {
        write_file("-", report_json(found).dump(2, ' ', false,
                                                nlohmann::ordered_json::error_handler_t::replace) +
                            "\n");
    } else {
        write_file("-", report_text(found, {.columns = output_columns(),
                                            .rows = of.chosen.shows_all ? all_rows
                                                    : is_two_builds     ? few_rows
                                                                        : 0}));
    }
    if (found.differences.empty()) {
        return exit_same;
    }
    if (!of.chosen.writes_json) {
        std::fprintf(stderr, "to find what leads to it: engr_replay --shrink %s%s%s\n",
                     is_two_builds ? "--compare-with " : "",
                     is_two_builds ? (of.chosen.other + " ").c_str() : "",
                     of.chosen.session.c_str());
    }
    return exit_differs;
}

int show_answers(const job &of) {
    const play_result result = play(of.recorded, of.how);
    write_file(of.chosen.out.empty() ? "-" : of.chosen.out, text_of(result.happened));
    if (!result.failure.empty()) {
        throw std::runtime_error(result.failure);
    }
    return exit_same;
}

/** The file that a job writes. */
std::string output_of(const job &of, const char *ending) {
    return of.chosen.out.empty() ? of.chosen.session + ending : of.chosen.out;
}

void say_written(const std::string &name, const std::string &what) {
    if (name != "-") {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), what.c_str());
    }
}

void write_output(const std::string &name, const std::string &content, const std::string &what) {
    write_file(name, content);
    say_written(name, what);
}

int shrink_session(const job &of) {
    const comparison_result whole = compare_sides(of, of.recorded);
    if (whole.differences.empty()) {
        throw std::runtime_error("the agent answers as recorded: there is nothing to reduce to");
    }
    const bool shows_progress = isatty(STDERR_FILENO) != 0;
    const shrunk result = shrink(
        of.chosen.other.empty() ? of.recorded : whole.expected, whole.differences.front(),
        {.has_other_build = !of.chosen.other.empty()},
        [&](recording tried) {
            comparison_result each = compare_sides(of, tried);
            return attempt{.judged = of.chosen.other.empty() ? std::move(tried)
                                                             : up_to(each.expected, end_of(tried)),
                           .differences = std::move(each.differences),
                           .got = answers_of(each.got)};
        },
        [&](std::size_t plays, std::size_t events) {
            if (shows_progress) {
                std::fprintf(stderr, "\r%zu plays, %zu events left\x1b[K", plays, events);
            }
        });
    if (shows_progress) {
        std::fputs("\r\x1b[K", stderr);
    }
    write_output(output_of(of, ".shrunk"), text_of(result.reduced),
                 fmt::format("{} of {} events of apps and operator are left, after {} plays",
                             result.events_after, result.events_before, result.plays));
    return exit_same;
}

/** What a test expects: this agent's order of answers when they are the recorded ones. */
recording session_for_test(const job &of) {
    comparison_result result = compare_sides(of, of.recorded);
    if (result.differences.empty()) {
        result.got.begin = of.recorded.begin;
        return result.got;
    }
    std::fputs("engr_replay: this agent does not answer as recorded, so the test will fail\n",
               stderr);
    return of.recorded;
}

int write_form(const job &of) {
    if (of.chosen.form == "fuzz-seed") {
        const uint32_t client = of.chosen.client != 0 ? of.chosen.client : busiest_app(of.recorded);
        write_output(output_of(of, ".fuzz-seed"), fuzz_seed_of(of.recorded, client),
                     fmt::format("the bytes of client {}, for fuzz/corpus/fuzz_server", client));
    } else if (of.chosen.form == "test") {
        write_output(output_of(of, ".test.cpp"),
                     test_case_of(session_for_test(of), identifier_of(of.chosen.session)),
                     "a test, for tests/agent");
    } else {
        const std::string scenario = output_of(of, ".scenario.json");
        write_output(scenario, scenario_of(of.recorded), "for engr_gatewayd --scenario");
        if (scenario != "-") {
            write_output((of.chosen.out.empty() ? of.chosen.session : of.chosen.out) + ".site.json",
                         site_of(of.recorded), "for engr_gatewayd --site");
        }
    }
    return exit_same;
}

int run(const options &chosen) {
    const job of = make_job(chosen);
    if (chosen.shows_answers) {
        return show_answers(of);
    }
    if (chosen.shrinks) {
        return shrink_session(of);
    }
    return chosen.form.empty() ? report(of) : write_form(of);
}

int complain(const std::exception &error, int status) {
    std::fprintf(stderr, "engr_replay: %s\n", control::terminal_text(error.what()).c_str());
    return status;
}

} // namespace
} // namespace replay

int main(int count, char **arguments) {
    using namespace replay;
    const parsed_options parsed = parse_options(count, arguments);
    if (parsed.ends) {
        return parsed.status;
    }
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(parsed.chosen);
    } catch (const support::input_error &error) {
        return complain(error, exit_usage);
    } catch (const std::exception &error) {
        return complain(error, exit_differs);
    }
}
