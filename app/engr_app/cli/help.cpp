// Help in the width of the terminal: usage, commands, arguments, options, notes and examples, and
// the global options last.
#include "cli/help.h"

#include "base/failure.h"
#include "cli/usage.h"

#include <algorithm>
#include <memory>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace engr_app {
namespace {

constexpr std::size_t pipe_columns = 80;
constexpr std::size_t least_columns = 40;
constexpr std::size_t most_columns = 120; // longer lines are hard to read
constexpr std::size_t name_columns = 26;

// Breaks at blanks; the first line continues one that has `used` columns already.
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

std::string entry(const std::string &name, std::string_view text, std::size_t columns) {
    std::string shown = "  " + name;
    const bool beside = shown.size() + 2 <= name_columns;
    shown += beside ? std::string(name_columns - shown.size(), ' ')
                    : '\n' + std::string(name_columns, ' ');
    return shown + wrapped(text, columns, name_columns, name_columns);
}

// A line with an indent of its own; a command stays whole, so that it can be copied.
std::string indented(std::string_view line, std::size_t columns) {
    if (line.size() <= columns || line.starts_with("  engr_app")) {
        return std::string(line) + '\n';
    }
    constexpr std::size_t more_indent = 4;
    const std::size_t indent = line.find_first_not_of(' ');
    return std::string(indent, ' ') +
           wrapped(line.substr(indent), columns, indent + more_indent, indent);
}

// Paragraphs are wrapped anew; indented lines, such as examples, remain lines.
std::string reflowed(std::string_view text, std::size_t columns) {
    std::string shown;
    std::string paragraph;
    const auto flush = [&] {
        shown += paragraph.empty() ? "" : wrapped(paragraph, columns, 0, 0);
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
        return wrapped(start + verb.get_description(), columns_, 0, 0) + '\n';
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
        return wrapped(line, columns_, 0, 0);
    }

    [[nodiscard]] std::string commands(const CLI::App &verb) const {
        std::string shown;
        for (const CLI::App *one : verb.get_subcommands(std::function<bool(const CLI::App *)>())) {
            shown += entry(one->get_name(), one->get_description(), columns_);
        }
        return shown.empty() ? "" : "\nCommands:\n" + shown;
    }

    template <typename Rule>
    [[nodiscard]] std::string options(const char *title, const CLI::App &verb, const Rule &is_shown,
                                      bool only_first_sentence = false) const {
        std::string shown;
        for (const CLI::Option *one : verb.get_options()) {
            if (is_shown(one) && !one->get_group().empty()) {
                shown += entry(option_name(*one), option_text(*one, only_first_sentence), columns_);
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

std::size_t help_columns() {
    winsize size{};
    if (isatty(STDOUT_FILENO) != 1 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 ||
        size.ws_col == 0) {
        return pipe_columns;
    }
    return std::clamp<std::size_t>(size.ws_col, least_columns, most_columns);
}

void set_help_layout(CLI::App &whole, std::size_t columns) {
    whole.formatter(std::make_shared<layout>(columns));
    whole.set_help_flag("-h,--help", "Show this help");
}

std::string help_of(const CLI::App &whole, const std::vector<std::string> &verb) {
    const CLI::App *shown = &whole;
    for (const std::string &word : verb) {
        const auto named =
            shown->get_subcommands([&word](const CLI::App *one) { return one->check_name(word); });
        if (named.empty()) {
            throw wrong_usage(unknown_command(*shown, word));
        }
        shown = named.front();
    }
    return shown->get_formatter()->make_help(shown, "", CLI::AppFormatMode::Normal);
}

} // namespace engr_app
