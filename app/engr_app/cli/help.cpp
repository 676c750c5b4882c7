// Help in the width of the terminal: usage, commands, arguments, options, notes and examples, and
// the global options last.
#include "cli/help.h"

#include "base/failure.h"
#include "cli/usage.h"
#include "support/help_text.h"
#include "verbs/verb.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace engr_app {
namespace {

// A line with an indent of its own; a command stays whole, so that it can be copied.
std::string indented(std::string_view line, std::size_t columns) {
    if (line.size() <= columns || line.starts_with("  engr_app")) {
        return std::string(line) + '\n';
    }
    constexpr std::size_t more_indent = 4;
    const std::size_t indent = line.find_first_not_of(' ');
    return std::string(indent, ' ') +
           support::wrapped(line.substr(indent), columns, indent + more_indent, indent);
}

// Paragraphs are wrapped anew; indented lines, such as examples, remain lines.
std::string reflowed(std::string_view text, std::size_t columns) {
    std::string shown;
    std::string paragraph;
    const auto flush = [&] {
        shown += paragraph.empty() ? "" : support::wrapped(paragraph, columns, 0, 0);
        paragraph.clear();
    };
    while (!text.empty()) {
        const std::size_t length = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, length);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (!line.empty() && line.front() != ' ') {
            paragraph += paragraph.empty() ? "" : " ";
            paragraph += line;
            continue;
        }
        flush();
        shown += indented(line, columns);
    }
    flush();
    return shown;
}

std::string option_text(const CLI::Option &option, bool only_first_sentence) {
    std::string text = option.get_description();
    if (only_first_sentence) {
        text.erase(std::min({text.find(". "), text.find("; "), text.size()}));
    }
    if (!option.get_envname().empty()) {
        text += fmt::format(" (or in ${})", option.get_envname());
    }
    return option.get_required() && !option.get_positional() ? text + " (required)" : text;
}

// The lines of a family's examples that are about one of its verbs.
std::string examples_in(const std::string &footer, const std::string &name) {
    std::string examples;
    for (const std::string &line : CLI::detail::split(footer, '\n')) {
        examples += (line + " ").starts_with("  " + name + " ") ? line + '\n' : "";
    }
    return examples;
}

class layout : public CLI::Formatter {
  public:
    explicit layout(std::size_t columns) : columns_(columns) {}

    std::string make_help(const CLI::App *verb, std::string /*name*/,
                          CLI::AppFormatMode /*mode*/) const override {
        const bool is_whole = verb->get_parent() == nullptr;
        std::string shown = heading(*verb) + usage(*verb);
        shown += commands(*verb);
        shown += options("Arguments", *verb,
                         [](const CLI::Option *one) { return one->get_positional(); });
        shown +=
            options("Options", *verb, [](const CLI::Option *one) { return one->nonpositional(); });
        shown += notes(*verb);
        if (!is_whole) {
            shown += global_options_of(*verb);
        }
        return shown;
    }

  private:
    [[nodiscard]] std::string heading(const CLI::App &verb) const {
        const std::string start = verb.get_parent() == nullptr ? "" : full_name(verb) + ": ";
        return support::wrapped(start + verb.get_description(), columns_, 0, 0) + '\n';
    }

    [[nodiscard]] std::string usage(const CLI::App &verb) const {
        std::string line = "Usage: " + full_name(verb);
        if (!verb.get_subcommands(std::function<bool(const CLI::App *)>()).empty()) {
            line += " COMMAND";
        }
        line += " [OPTIONS]";
        for (const CLI::Option *one : verb.get_options()) {
            if (one->get_positional()) {
                const std::string name =
                    one->get_name(true, false) + (one->get_expected_max() > 1 ? "..." : "");
                line += one->get_required() ? " " + name : " [" + name + "]";
            }
        }
        return support::wrapped(line, columns_, 0, 0);
    }

    [[nodiscard]] std::string commands(const CLI::App &verb) const {
        std::string shown;
        for (const CLI::App *one : verb.get_subcommands(std::function<bool(const CLI::App *)>())) {
            shown += support::help_entry(one->get_name(), one->get_description(), columns_);
        }
        return shown.empty() ? "" : "\nCommands:\n" + shown;
    }

    template <typename Rule>
    [[nodiscard]] std::string options(const char *title, const CLI::App &verb, const Rule &is_shown,
                                      bool only_first_sentence = false) const {
        std::string shown;
        for (const CLI::Option *one : verb.get_options()) {
            if (is_shown(one) && !one->get_group().empty()) {
                shown += support::help_entry(support::option_name(*one),
                                             option_text(*one, only_first_sentence), columns_);
            }
        }
        return shown.empty() ? "" : fmt::format("\n{}:\n{}", title, shown);
    }

    [[nodiscard]] std::string notes(const CLI::App &verb) const {
        std::string footer = verb.get_footer();
        if (footer.empty() && verb.get_parent() != nullptr) {
            const CLI::App &family = *verb.get_parent();
            const std::string examples = examples_in(family.get_footer(), full_name(verb));
            footer = (examples.empty() ? "" : "Examples:\n" + examples + '\n') +
                     "See also: " + full_name(family) + " --help";
        }
        return '\n' + reflowed(footer, columns_);
    }

    [[nodiscard]] std::string global_options_of(const CLI::App &verb) const {
        const CLI::App *whole = &verb;
        while (whole->get_parent() != nullptr) {
            whole = whole->get_parent();
        }
        const auto is_shown = [whole](const CLI::Option *one) {
            return one->nonpositional() && one != whole->get_help_ptr() &&
                   one->get_name() != "--version";
        };
        return options("Global options (engr_app --help has more on them)", *whole, is_shown, true);
    }

    std::size_t columns_;
};

} // namespace

void set_help_layout(CLI::App &whole, std::size_t columns) {
    whole.formatter(std::make_shared<layout>(columns));
}

std::string help_of(CLI::App &whole, const std::vector<std::string> &verb) {
    CLI::App *shown = &whole;
    for (const std::string &word : verb) {
        const auto named =
            shown->get_subcommands([&word](CLI::App *one) { return one->check_name(word); });
        if (named.empty()) {
            throw wrong_usage(unknown_command(*shown, word));
        }
        shown = named.front();
        declare_verb(*shown);
    }
    return shown->get_formatter()->make_help(shown, "", CLI::AppFormatMode::Normal);
}

} // namespace engr_app
