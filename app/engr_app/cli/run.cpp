// Running a verb, and merging the results of several gateways.
#include "cli/run.h"

#include "cli/targets.h"
#include "files/key_file.h"
#include "gateway/session.h"
#include "support/input_error.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <thread>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

// Each has a thread and a connection of its own.
constexpr std::size_t most_at_once = 256;

int show_failures(console &out, const std::function<int()> &work) {
    try {
        return work();
    } catch (const failure &failed) {
        out.problem(failed.kind(), failed.what());
        return failed.exit_code();
    } catch (const support::input_error &error) {
        out.problem("usage", error.what());
        return exit_wrong_usage;
    } catch (const std::exception &failed) {
        out.problem("internal", failed.what());
        return exit_failed;
    }
}

// A verb's work with one gateway. Its failure is shown before the session may have to stay.
int run_session(gateway_session &session, console &out, const verb_work &work) {
    const int exit_code = show_failures(out, [&] { return work(session); });
    session.leave();
    return exit_code;
}

// The work of a verb with one of several gateways.
struct gateway_run {
    gateway_run(run_target one, const global_options &options, screen &shown_on)
        : target(std::move(one)), out(shown_on, options.json, options.verbose, target.label) {}

    run_target target;
    console out;
    int exit_code = exit_failed;
};

using run_list = std::vector<std::unique_ptr<gateway_run>>;

nlohmann::json outcome(const gateway_run &done) {
    nlohmann::json result{{"gateway", done.target.label}, {"exit", done.exit_code}};
    const kept_results &kept = done.out.kept();
    if (kept.error && !kept.document) {
        result["error"] = *kept.error;
    } else if (!kept.streamed) {
        result["result"] = kept.document ? *kept.document : nlohmann::json();
    }
    return result;
}

// A stream of lines ends with a line for each gateway; all else is one array.
void show_json(const run_list &runs, console &out) {
    const bool streamed =
        std::ranges::any_of(runs, [](const auto &one) { return one->out.kept().streamed; });
    nlohmann::json all = nlohmann::json::array();
    for (const auto &one : runs) {
        all.push_back(outcome(*one));
        if (streamed) {
            out.json_line(all.back());
        }
    }
    if (!streamed) {
        out.document(all);
    }
}

// Tables with the same header become one.
void show_tables(const run_list &runs, console &out) {
    std::vector<kept_results::table> merged;
    for (const auto &one : runs) {
        for (const kept_results::table &part : one->out.kept().tables) {
            console::row header{"GATEWAY"};
            header.insert(header.end(), part.header.begin(), part.header.end());
            auto found = std::ranges::find(merged, header, &kept_results::table::header);
            if (found == merged.end()) {
                found = merged.insert(found, {header, {}, part.view});
            }
            for (const console::row &cells : part.rows) {
                found->rows.push_back({one->target.label});
                found->rows.back().insert(found->rows.back().end(), cells.begin(), cells.end());
            }
        }
    }
    for (const kept_results::table &one : merged) {
        out.table(one.header, one.rows, one.view);
    }
}

// Texts stay whole, each under the name of its gateway.
void show_texts(const run_list &runs, console &out) {
    for (const auto &one : runs) {
        for (const std::string &text : one->out.kept().texts) {
            out.line(one->target.label + ":");
            out.text(text);
        }
    }
}

// Whether another gateway may have been meant.
bool is_about_reaching(int exit_code) {
    return exit_code == exit_not_found || exit_code == exit_no_connection || exit_code == exit_key;
}

int exit_code_of(const run_list &runs, console &out) {
    const auto failed =
        std::ranges::count_if(runs, [](const auto &one) { return one->exit_code != exit_success; });
    const int first = runs.front()->exit_code;
    if (failed > 0) {
        out.notice(fmt::format("{} of {} gateway{} failed", failed, runs.size(),
                               runs.size() == 1 ? "" : "s"));
    }
    const bool all_alike =
        std::ranges::all_of(runs, [first](const auto &one) { return one->exit_code == first; });
    return all_alike ? first : exit_partly_failed;
}

int run_on_several(const verb_work &work, const global_options &options, screen &shown_on,
                   console &out, const std::shared_ptr<session_recorder> &recorder) {
    run_list runs;
    {
        gateway_session session(options, out, recorder);
        for (run_target &one : find_targets(session)) {
            runs.push_back(std::make_unique<gateway_run>(std::move(one), options, shown_on));
        }
    }
    std::atomic<bool> was_interrupted = false; // none of those that wait begins then
    std::vector<std::string> labels;
    for (const auto &one : runs) {
        labels.push_back(one->target.label);
    }
    const auto work_with = [&](gateway_run &one) {
        one.exit_code = show_failures(one.out, [&] {
            if (one.target.missing) {
                throw failure(*one.target.missing);
            }
            if (was_interrupted) {
                throw interrupted();
            }
            gateway_session session(options, one.out, recorder, *one.target.found,
                                    one.target.file_mark);
            session.set_run_gateways(labels);
            return run_session(session, one.out, work);
        });
        was_interrupted = was_interrupted || one.exit_code == exit_interrupted;
    };
    if (runs.size() > most_at_once) {
        out.notice(fmt::format("{} gateways are worked with at once; each of the others follows "
                               "when one of them is done",
                               most_at_once));
    }
    std::atomic<std::size_t> next = 0;
    const auto work_on = [&] {
        for (std::size_t at = next++; at < runs.size(); at = next++) {
            work_with(*runs[at]);
        }
    };
    {
        std::vector<std::jthread> threads;
        for (std::size_t count = std::min(runs.size(), most_at_once); count > 0; --count) {
            threads.emplace_back(work_on);
        }
    }
    if (options.json) {
        show_json(runs, out);
    } else {
        show_tables(runs, out);
        show_texts(runs, out);
    }
    return exit_code_of(runs, out);
}

} // namespace

int run_verb(const verb_work &work, const global_options &given, screen &shown_on) {
    console out(shown_on, given.json, given.verbose);
    const int exit_code = show_failures(out, [&] {
        global_options options = given;
        if (!options.key_file.empty()) {
            options.keys = read_key_file(options.key_file, out);
        }
        const auto recorder = options.record_file.empty()
                                  ? nullptr
                                  : std::make_shared<session_recorder>(options, shown_on);
        if (options.all || options.gateways.size() > 1) {
            return run_on_several(work, options, shown_on, out, recorder);
        }
        gateway_session session(options, out, recorder);
        return run_session(session, out, work);
    });
    if (is_about_reaching(exit_code) && !given.gateways_from.empty() && !given.json) {
        out.notice(fmt::format("gateway {} was named by {}", fmt::join(given.gateways, ", "),
                               given.gateways_from));
    }
    return exit_code;
}

} // namespace engr_app
