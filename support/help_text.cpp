#include "support/help_text.h"

#include "support/terminal.h"

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <sstream>

namespace support {
namespace {

constexpr std::size_t pipe_columns = 80;
constexpr std::size_t least_help_columns = 40;
constexpr std::size_t most_help_columns = 120; // longer lines are hard to read
constexpr std::size_t name_columns = 26;

class program_layout : public CLI::Formatter {
  public:
    explicit program_layout(std::string usage) : usage_(std::move(usage)) {}

    std::string make_help(const CLI::App *app, std::string /*name*/,
                          CLI::AppFormatMode /*mode*/) const override {
        const std::size_t columns = help_columns();
        std::string shown = wrapped(app->get_description(), columns, 0, 0) + '\n' +
                            wrapped("Usage: " + usage_, columns, 0, 0) + "\nOptions:\n";
        for (const CLI::Option *one : app->get_options()) {
            shown += help_entry(option_name(*one), one->get_description(), columns);
        }
        const auto verbs = app->get_subcommands([](const CLI::App *) { return true; });
        for (const CLI::App *verb : verbs) {
            shown += verb == verbs.front() ? "\nVerbs:\n" : "";
            shown += help_entry(verb->get_name(), verb->get_description(), columns);
        }
        shown += app->get_footer().empty() ? "" : "\n";
        std::istringstream lines(app->get_footer());
        for (std::string line; std::getline(lines, line);) {
            shown += line.size() > columns ? wrapped(line, columns, 0, 0) : line + '\n';
        }
        return shown;
    }

  private:
    std::string usage_;
};

} // namespace

std::size_t help_columns() {
    return std::clamp(terminal_columns(STDOUT_FILENO).value_or(pipe_columns), least_help_columns,
                      most_help_columns);
}

std::string wrapped(std::string_view text, std::size_t columns, std::size_t indent,
                    std::size_t used) {
    std::string lines;
    bool begins_line = true;
    while (!text.empty()) {
        const std::size_t length = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, length);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (word.empty()) {
            continue;
        }
        if (!begins_line && used + 1 + word.size() > columns) {
            lines += '\n' + std::string(indent, ' ');
            used = indent;
        } else if (!begins_line) {
            lines += ' ';
            ++used;
        }
        lines += word;
        used += word.size();
        begins_line = false;
    }
    return lines + '\n';
}

std::string help_entry(const std::string &name, std::string_view text, std::size_t columns) {
    std::string shown = "  " + name;
    const bool beside = shown.size() + 2 <= name_columns;
    shown += beside ? std::string(name_columns - shown.size(), ' ')
                    : '\n' + std::string(name_columns, ' ');
    return shown + wrapped(text, columns, name_columns, name_columns);
}

std::string option_name(const CLI::Option &option) {
    std::string name =
        option.get_positional() ? option.get_name(true, false) : option.get_name(false, true);
    if (const std::size_t comma = name.find(','); comma != std::string::npos) {
        name.insert(comma + 1, " ");
    }
    const bool takes_value = !option.get_positional() && option.get_items_expected_max() > 0;
    const std::string type = option.get_type_name(); // and behind a colon what its check says
    return takes_value ? name + " " + type.substr(0, type.find(':')) : name;
}

void set_program_help(CLI::App &app, const std::string &usage) {
    app.formatter(std::make_shared<program_layout>(usage));
    app.get_help_ptr()->description("Show this help");
    if (CLI::Option *version = app.get_option_no_throw("--version")) {
        version->description("Show the version");
    }
    app.failure_message([](const CLI::App *of, const CLI::Error &error) {
        return of->get_name() + ": " + error.what() + "; see " + of->get_name() + " --help\n";
    });
}

} // namespace support
