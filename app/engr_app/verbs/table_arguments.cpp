// Declaring the options of tables.
#include "verbs/table_arguments.h"

#include <algorithm>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace engr_app {
namespace {

CLI::App *whole_command_line(CLI::App &parser) {
    CLI::App *whole = &parser;
    while (whole->get_parent() != nullptr) {
        whole = whole->get_parent();
    }
    return whole;
}

// Checks the name of a column, which a value may follow.
CLI::Validator is_column(std::vector<std::string> columns) {
    if (std::ranges::count(columns, "GATEWAY") == 0) {
        columns.emplace_back("GATEWAY");
    }
    return {[columns = std::move(columns)](const std::string &text) {
                const std::string name = text.substr(0, text.find('='));
                const bool known = std::ranges::any_of(
                    columns, [&name](const std::string &one) { return same_column(one, name); });
                return known ? std::string()
                             : fmt::format("unknown column {}; there are {}", name,
                                           fmt::join(columns, ", "));
            },
            ""};
}

} // namespace

void declare_table(CLI::App &parser, table_view &view, std::vector<std::string> columns) {
    const std::string group = "Table";
    const CLI::Validator column = is_column(std::move(columns));
    CLI::Option *const options[] = {
        parser.add_option("--sort", view.sort_by, "Sort the rows by this column")
            ->type_name("COLUMN")
            ->check(column),
        parser
            .add_option_function<std::vector<std::string>>(
                "--filter",
                [&view](const std::vector<std::string> &filters) {
                    for (const std::string &one : filters) {
                        const std::size_t equals = one.find('=');
                        view.filters.emplace_back(one.substr(0, equals), one.substr(equals + 1));
                    }
                },
                "Show only rows with this text in the column; may be given several times")
            ->type_name("COLUMN=TEXT")
            ->expected(1)
            ->take_all()
            ->check([](const std::string &text) {
                return text.find('=') == std::string::npos ? "expected COLUMN=TEXT" : "";
            })
            ->check(column),
        parser.add_option("--fields", view.fields, "Show these columns, in this order")
            ->type_name("A,B,...")
            ->allow_extra_args(false)
            ->delimiter(',')
            ->check(column),
        parser.add_flag_callback(
            "--no-header", [&view] { view.header = false; }, "Leave the header out"),
        parser.add_flag("--csv", view.csv, "Comma-separated values, also on a terminal"),
    };
    CLI::Option *json = whole_command_line(parser)->get_option_no_throw("--json");
    for (CLI::Option *one : options) {
        one->group(group);
        if (json != nullptr) {
            one->excludes(json);
        }
    }
}

} // namespace engr_app
