// site: reports what was commissioned, what changed between two reports, and the verbs of plans.
#include "base/failure.h"
#include "base/json_text.h"
#include "files/input_file.h"
#include "files/output_file.h"
#include "gateway/devices.h"
#include "gateway/session.h"
#include "plan/changes.h"
#include "plan/plan.h"
#include "site/diff.h"
#include "site/report.h"
#include "verbs/site_plan.h"
#include "verbs/table_arguments.h"
#include "verbs/verb.h"

#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace engr_app {
namespace {

using nlohmann::json;

struct report_arguments {
    std::string markdown_file;
    std::string json_file;
    site_report_extent extent;
};

const console::row change_columns{"GATEWAY", "ITEM", "CID", "WHAT"};

struct diff_arguments {
    std::string before;
    std::string after;
    table_view view;
};

int report(gateway_session &session, const report_arguments &given) {
    const json about = ask_site_report(session, given.extent);
    std::string files;
    const auto write = [&](const std::string &name, const std::string &text) {
        if (!name.empty()) {
            const std::string path = session.output_path(name);
            write_file(path, text + "\n");
            files += (files.empty() ? "" : " and ") + path;
        }
    };
    const std::string markdown = site_report_markdown(about);
    write(given.markdown_file, markdown);
    write(given.json_file, many_lines(about));
    console &out = session.out();
    if (out.json()) {
        out.document(about);
    } else if (files.empty()) {
        out.text(markdown);
    } else {
        out.line(fmt::format("report of {} with {} devices written to {}", session.chosen().name(),
                             about["devices"].size(), files));
    }
    return exit_success;
}

// A plan is no report, and it says so itself.
bool is_plan(const std::string &path) {
    if (path.ends_with(".yaml") || path.ends_with(".yml")) {
        return true;
    }
    const json content = parse_json(file_text(path));
    return content.is_object() && content.contains("plan") && content.contains("gateways") &&
           !content.contains("plan_report");
}

int diff(gateway_session &session, const diff_arguments &given) {
    console &out = session.out();
    if (is_plan(given.before)) {
        throw wrong_usage("site diff: the report comes first, the plan second");
    }
    const json before = read_site_reports(given.before);
    const json changes = is_plan(given.after)
                             ? plan_changes(site_plan(given.after, out), before)
                             : site_changes(before, read_site_reports(given.after));
    const int code = changes.empty() ? exit_success : exit_failed;
    if (out.json()) {
        out.document(changes);
        return code;
    }
    if (changes.empty() && given.view.is_usual()) {
        out.line("no difference");
        return code;
    }
    std::vector<console::row> rows;
    for (const json &one : changes) {
        rows.push_back({member_text(one, "gateway"), member_text(one, "item"),
                        one["cid"].is_null() ? "-" : member_text(one, "cid"),
                        member_text(one, "words")});
    }
    out.table(change_columns, rows, given.view);
    return code;
}

verb_work declare_report(CLI::App &parser) {
    const auto given = std::make_shared<report_arguments>();
    parser.add_option("--markdown", given->markdown_file, "Write the report for people")
        ->type_name("FILE");
    parser
        .add_option("--json-file", given->json_file,
                    "Write the report for machines, which site diff reads")
        ->type_name("FILE");
    parser.add_flag("--data-points", given->extent.data_points,
                    "Ask every device for its data points as well");
    parser.add_flag("--versions", given->extent.versions,
                    "Ask for the firmware versions of the gateway and of every device as well");
    parser.footer(std::string(versions_note) +
                  "Without a file the report goes to standard output, as Markdown or with --json "
                  "as\nJSON. With several gateways each has files of its own, FILE-ID.EXTENSION.");
    return with_arguments(given, report);
}

verb_work declare_diff(CLI::App &parser) {
    const auto given = std::make_shared<diff_arguments>();
    parser.add_option("BEFORE", given->before, "The earlier report, a JSON file")->required();
    parser.add_option("AFTER", given->after, "The later one, or a plan")->required();
    declare_table(parser, given->view, change_columns);
    concerns_no_gateway(parser);
    parser.footer("Exit status 0 when they do not differ, 1 when they do, 2 when one can't be "
                  "read.\n\n"
                  "Examples:\n"
                  "  engr_app site diff before.json after.json\n"
                  "  engr_app site diff before.json after.json --filter item=online\n"
                  "  engr_app site diff report.json flats.yaml");
    return with_arguments(given, diff);
}

} // namespace

verb_work declare_site(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app site report --markdown site.md --json-file site.json\n"
                  "  engr_app site report --all --json > before.json\n"
                  "  engr_app site diff before.json after.json\n"
                  "  engr_app site plan flats.yaml\n"
                  "  engr_app site apply flats.yaml --report flats.html");
    return add_subverbs(
        parser, {{"report", "what was commissioned: gateway, channel, devices, configuration",
                  declare_report},
                 {"diff", "what differs between two reports, or a report and a plan", declare_diff},
                 {"plan", "what site apply would change", declare_site_plan},
                 {"apply", "make gateways as a plan says", declare_site_apply},
                 {"export", "write a plan from what a gateway has", declare_site_export},
                 {"schema", "print the JSON Schema of plans", declare_site_schema}});
}

} // namespace engr_app
