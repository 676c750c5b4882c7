// site plan, apply, export and schema: gateways made as a plan says.
#include "verbs/site_plan.h"

#include "base/failure.h"
#include "base/json_text.h"
#include "files/output_file.h"
#include "gateway/devices.h"
#include "gateway/session.h"
#include "plan/export.h"
#include "plan/plan.h"
#include "plan/report.h"
#include "plan/run.h"
#include "plan/schema.h"
#include "terminal/question.h"
#include "verbs/table_arguments.h"

#include <algorithm>
#include <filesystem>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

constexpr std::size_t most_shown_steps = 10;
constexpr std::size_t most_at_once = 64;

const console::row step_columns{"GATEWAY", "ITEM", "STATE", "WHAT"};

struct plan_arguments {
    std::string plan;
    plan_run_options options;
    std::vector<std::string> reports;
    table_view view; // of the steps
};

struct export_arguments {
    std::string file;
    bool versions = false;
    bool force = false;
};

// Before the work, which may take long.
void check_report_path(const std::string &path) {
    const std::string kind = std::filesystem::path(path).extension();
    if (kind != ".md" && kind != ".html" && kind != ".json") {
        throw wrong_usage(
            fmt::format("--report {}: the name has to end with .md, .html or .json", path));
    }
    check_output_path(path, true);
}

void write_report(const std::string &path, const json &report) {
    const std::string kind = std::filesystem::path(path).extension();
    write_file(path, (kind == ".md"     ? plan_report_markdown(report)
                      : kind == ".html" ? plan_report_html(report)
                                        : many_lines(report)) +
                         "\n");
}

void confirm_steps(console &out, const std::vector<std::string> &sentences) {
    if (!can_ask()) {
        throw wrong_usage(fmt::format("site apply: {} steps can't be undone, so that they need "
                                      "--yes; the first is {}",
                                      sentences.size(), sentences.front()));
    }
    std::string text = "These steps can't be undone:\n";
    for (std::size_t index = 0; index < std::min(sentences.size(), most_shown_steps); ++index) {
        text += "  " + sentences[index] + '\n';
    }
    if (sentences.size() > most_shown_steps) {
        text += fmt::format("  and {} more\n", sentences.size() - most_shown_steps);
    }
    if (!is_confirmed(out, text + "Apply the whole plan with them?")) {
        throw failure("not_confirmed", "nothing was changed");
    }
}

// The steps that somebody has to look at.
void show_steps(console &out, const std::vector<gateway_outcome> &outcomes,
                const table_view &view) {
    std::vector<console::row> rows;
    for (const gateway_outcome &one : outcomes) {
        for (const plan_step &step : one.steps) {
            if (step.state != step_state::as_planned && step.state != step_state::done) {
                rows.push_back({one.plan.name, step.item,
                                step.state == step_state::to_do       ? "to do"
                                : step.state == step_state::not_tried ? "not tried"
                                                                      : "failed",
                                step.words});
            }
        }
        if (one.problem) {
            rows.push_back({one.plan.name, "-", "failed", one.problem->what()});
        }
        for (const std::string &note : one.notes) {
            rows.push_back({one.plan.name, "-", "note", note});
        }
    }
    if (!rows.empty() || !view.is_usual()) {
        out.table(step_columns, rows, view);
    }
}

void show_amount(console &out, const std::vector<gateway_outcome> &outcomes,
                 const std::string &plan_name, const table_view &view) {
    std::size_t to_do = 0;
    std::size_t already = 0;
    for (const gateway_outcome &one : outcomes) {
        to_do += one.count(step_state::to_do);
        already += one.count(step_state::as_planned);
    }
    if (std::ranges::all_of(outcomes, &gateway_outcome::is_success) && view.is_usual()) {
        out.line(fmt::format("nothing to do: all gateways of {} are as planned", plan_name));
    } else {
        out.notice(fmt::format("to do: {}, already as planned: {}, gateways: {}", to_do, already,
                               outcomes.size()));
    }
}

void show_totals(console &out, const std::vector<gateway_outcome> &outcomes) {
    std::vector<console::row> rows;
    for (const gateway_outcome &one : outcomes) {
        rows.push_back({one.plan.name, one.address, one.is_success() ? "as planned" : "FAILED",
                        std::to_string(one.count(step_state::done)),
                        std::to_string(one.count(step_state::as_planned)),
                        std::to_string(one.count(step_state::failed)),
                        std::to_string(one.count(step_state::not_tried))});
    }
    out.table({"GATEWAY", "ADDRESS", "OUTCOME", "DONE", "ALREADY", "FAILED", "NOT TRIED"}, rows);
}

int exit_code(console &out, const std::vector<gateway_outcome> &outcomes, bool applied) {
    const auto good = std::ranges::count_if(outcomes, [applied](const gateway_outcome &one) {
        return applied ? one.is_success() : !one.problem;
    });
    const auto all = static_cast<std::ptrdiff_t>(outcomes.size());
    if (good != all) {
        out.notice(fmt::format("{}: {} of {} gateways",
                               applied ? "not as planned" : "could not be looked at", all - good,
                               all));
    }
    return good == all ? exit_success : exit_failed;
}

int run(gateway_session &session, const plan_arguments &given) {
    if (!session.options().gateways.empty() || session.options().all) {
        throw wrong_usage("the gateways are those of the plan: leave out --gateway and --all, and "
                          "pick some of them by --only NAME");
    }
    std::ranges::for_each(given.reports, check_report_path);
    console &out = session.out();
    const site_plan plan(given.plan, out);
    plan_run_options options = given.options;
    options.listen = !given.reports.empty(); // which name gateways by their ids
    const std::vector<gateway_outcome> outcomes =
        run_plan(session, plan, options, [&out](const std::vector<std::string> &sentences) {
            confirm_steps(out, sentences);
        });
    const bool applied = given.options.apply;
    const json report = plan_report(plan.name(), applied, outcomes);
    for (const std::string &path : given.reports) {
        write_report(path, report);
    }
    if (out.json()) {
        out.document(report);
        return exit_code(out, outcomes, applied);
    }
    if (applied) {
        show_totals(out, outcomes);
    }
    show_steps(out, outcomes, given.view);
    if (!applied) {
        show_amount(out, outcomes, plan.name(), given.view);
    }
    return exit_code(out, outcomes, applied);
}

int write_plan(gateway_session &session, const export_arguments &given) {
    const std::string path = given.file.empty() ? "" : session.output_path(given.file);
    if (!path.empty()) {
        check_output_path(path, given.force);
    }
    const exported_plan made = export_plan(session, given.versions);
    console &out = session.out();
    if (!path.empty()) {
        write_file(path, made.yaml + "\n");
    }
    if (out.json()) {
        out.document({{"plan", path.empty() ? json(made.yaml) : json()},
                      {"file", path.empty() ? json() : json(path)},
                      {"missing", made.missing}});
        return exit_success;
    }
    if (path.empty()) {
        out.text(made.yaml);
        return exit_success;
    }
    out.line(fmt::format("the plan of {} is in {}", session.chosen().name(), path));
    for (const std::string &one : made.missing) {
        out.notice("not in it, since a gateway does not tell: " + one);
    }
    return exit_success;
}

std::shared_ptr<plan_arguments> declare_plan_arguments(CLI::App &parser, bool apply) {
    const auto given = std::make_shared<plan_arguments>();
    given->options.apply = apply;
    parser
        .add_option("PLAN", given->plan, "The plan, YAML or JSON; - reads it from standard input")
        ->required();
    parser.add_option("--only", given->options.only, "Work with this gateway of the plan only")
        ->type_name("NAME")
        ->expected(1)
        ->take_all();
    parser
        .add_option("--progress", given->options.progress_file,
                    "Where it is noted what was sent (default PLAN.progress.json)")
        ->type_name("FILE");
    parser.add_option("--at-once", given->options.at_once, "Gateways to work with side by side")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, most_at_once))
        ->capture_default_str();
    parser
        .add_option("--report", given->reports,
                    "Write a report: .md, .html to be signed off, or .json, which site diff reads")
        ->type_name("FILE")
        ->expected(1)
        ->take_all();
    parser.add_flag("--again", given->options.again,
                    "Send also what was sent before and can't be read back");
    concerns_no_gateway(parser);
    return given;
}

} // namespace

verb_work declare_site_plan(CLI::App &parser) {
    const auto given = declare_plan_arguments(parser, false);
    declare_table(parser, given->view, step_columns);
    parser.footer("Nothing is changed. Firmware versions are asked for if the plan has firmware;\n"
                  "a gateway tells them only to an app that announces an image, so that an image\n"
                  "which another app has announced and not started is withdrawn.\n\n"
                  "Examples:\n"
                  "  engr_app site plan flats.yaml\n"
                  "  engr_app site plan flats.yaml --only flat-07\n"
                  "  engr_app site plan flats.yaml --filter item=firmware --csv");
    return with_arguments(given, run);
}

verb_work declare_site_apply(CLI::App &parser) {
    const auto given = declare_plan_arguments(parser, true);
    parser.add_flag("--yes", given->options.yes,
                    "Do without asking what can't be undone: the cloud configuration, a downgrade, "
                    "the removal of devices");
    parser.footer("Only what differs from the plan is sent. What can't be read back is noted in\n"
                  "the progress file when it was sent, so that an apply that was interrupted goes\n"
                  "on where it stopped. Ctrl-C finishes the step under way.\n"
                  "Exit status 0 when all gateways are as planned.\n\n"
                  "Examples:\n"
                  "  engr_app site apply flats.yaml --report flats.html\n"
                  "  engr_app site apply flats.yaml --yes --report flats.json");
    return with_arguments(given, run);
}

verb_work declare_site_export(CLI::App &parser) {
    const auto given = std::make_shared<export_arguments>();
    parser.add_option("FILE", given->file,
                      "Where to write the plan; when left out, to standard output");
    parser.add_flag("--versions", given->versions,
                    "Ask for the firmware versions as well, and note them as comments");
    parser.add_flag("--force", given->force, "Overwrite FILE");
    parser.footer(std::string(versions_note) +
                  "With several gateways each has a file of its own, FILE-ID.EXTENSION.");
    return with_arguments(given, write_plan);
}

verb_work declare_site_schema(CLI::App &parser) {
    concerns_no_gateway(parser);
    return [](gateway_session &session) {
        std::string_view schema = site_plan_schema();
        schema.remove_suffix(schema.ends_with('\n') ? 1 : 0);
        session.out().text(schema);
        return exit_success;
    };
}

} // namespace engr_app
