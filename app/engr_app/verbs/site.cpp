// site: reports what was commissioned, and what changed between two reports.
#include "base/failure.h"
#include "base/json_text.h"
#include "files/output_file.h"
#include "gateway/devices.h"
#include "gateway/session.h"
#include "site/diff.h"
#include "site/report.h"
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

struct diff_arguments {
    std::string before;
    std::string after;
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

int diff(gateway_session &session, const diff_arguments &given) {
    const json changes =
        site_changes(read_site_reports(given.before), read_site_reports(given.after));
    console &out = session.out();
    if (out.json()) {
        out.document(changes);
        return exit_success;
    }
    for (const json &one : changes) {
        out.line(
            fmt::format("gateway {}: {}", member_text(one, "gateway"), member_text(one, "words")));
    }
    if (changes.empty()) {
        out.line("nothing changed");
    }
    return exit_success;
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
    parser.add_option("AFTER", given->after, "The later one")->required();
    concerns_no_gateway(parser);
    return with_arguments(given, diff);
}

} // namespace

verb_work declare_site(CLI::App &parser) {
    parser.footer("Examples:\n"
                  "  engr_app site report --markdown site.md --json-file site.json\n"
                  "  engr_app site report --all --json > before.json\n"
                  "  engr_app site diff before.json after.json");
    return add_subverbs(
        parser, {{"report", "what was commissioned: gateway, channel, devices, configuration",
                  declare_report},
                 {"diff", "what changed between two reports", declare_diff}});
}

} // namespace engr_app
