// Sentences in place of the parser's own.
#include "cli/usage.h"

#include "base/suggestion.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace engr_app {
namespace {

std::vector<std::string> verbs_of(const CLI::App &verb) {
    std::vector<std::string> names;
    for (const CLI::App *one : verb.get_subcommands(std::function<bool(const CLI::App *)>())) {
        names.push_back(one->get_name());
    }
    return names;
}

std::vector<std::string> options_of(const CLI::App &innermost) {
    std::vector<std::string> names;
    for (const CLI::App *at = &innermost; at != nullptr; at = at->get_parent()) {
        for (const CLI::Option *option : at->get_options()) {
            for (const std::string &name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

std::string with_help(const std::string &sentence, const CLI::App &verb) {
    return fmt::format("{}{} {} --help", sentence, sentence.ends_with('?') ? " See" : "; see",
                       full_name(verb));
}

// What nothing has taken.
std::optional<std::string> leftover_problem(const CLI::App &whole) {
    const std::vector<std::string> left = whole.remaining(true);
    if (left.empty()) {
        return std::nullopt;
    }
    const CLI::App &verb = innermost_verb(whole);
    // What follows an unknown option may be its value.
    const auto option = std::ranges::find_if(
        left, [](const std::string &word) { return word.size() > 1 && word.starts_with('-'); });
    if (option != left.end()) {
        const std::string name = option->substr(0, option->find('='));
        return fmt::format("unknown option '{}'{}", name, did_you_mean(name, options_of(verb)));
    }
    if (!verbs_of(verb).empty()) {
        return fmt::format("unknown command '{}'{}", left.front(),
                           did_you_mean(left.front(), verbs_of(verb)));
    }
    return fmt::format("unexpected argument '{}'", left.front());
}

std::string missing_problem(const CLI::App &whole) {
    const CLI::App &verb = innermost_verb(whole);
    for (const CLI::Option *option : verb.get_options()) {
        if (option->get_required() && option->count() == 0) {
            return option->get_name() + " is missing";
        }
    }
    return verb.get_parent() == nullptr
               ? "name a command"
               : fmt::format("name a command: {}", fmt::join(verbs_of(verb), ", "));
}

// "0.010000" becomes "0.01".
std::string plain_number(std::string text) {
    if (text.find('.') != std::string::npos && text.find('e') == std::string::npos) {
        text.erase(text.find_last_not_of('0') + 1);
        text.erase(text.find_last_not_of('.') + 1);
    }
    return text;
}

std::optional<std::string_view> between(std::string_view text, std::string_view start,
                                        std::string_view end) {
    const std::size_t from = text.find(start);
    if (from == std::string_view::npos) {
        return std::nullopt;
    }
    text.remove_prefix(from + start.size());
    const std::size_t to = end.empty() ? text.size() : text.find(end);
    return to == std::string_view::npos ? std::nullopt : std::optional(text.substr(0, to));
}

// The validators of the library say "NAME: Value X not in range A to B" and "NAME: X not in {A,B}".
std::string invalid_value(std::string_view text) {
    const std::string_view name = text.substr(0, text.find(": "));
    if (const auto value = between(text, ": Value ", " not in range ")) {
        const std::string least(between(text, " not in range ", " to ").value_or(""));
        const std::string most(between(text, least + " to ", "").value_or(""));
        const bool any_positive = most.size() > 20; // of all numbers that there are
        return fmt::format(
            "{}: invalid value '{}': use a number {}", name, *value,
            any_positive ? "greater than 0"
                         : fmt::format("from {} to {}", plain_number(least), plain_number(most)));
    }
    if (const auto known = between(text, " not in {", "}")) {
        std::string list(*known);
        for (std::size_t at = list.find(','); at != std::string::npos;
             at = list.find(',', at + 2)) {
            list.insert(at + 1, " ");
        }
        return fmt::format("{}: invalid value '{}': use one of {}", name,
                           between(text, ": ", " not in {").value_or(""), list);
    }
    return std::string(text);
}

std::string pair_problem(const std::string &text, std::string_view verb_of_library,
                         std::string_view ours) {
    const std::size_t at = text.find(verb_of_library);
    return at == std::string::npos ? text
                                   : fmt::format(fmt::runtime(ours), text.substr(0, at),
                                                 text.substr(at + verb_of_library.size()));
}

} // namespace

const CLI::App &innermost_verb(const CLI::App &whole) {
    const CLI::App *innermost = &whole;
    while (!innermost->get_subcommands().empty()) {
        innermost = innermost->get_subcommands().front();
    }
    return *innermost;
}

std::string full_name(const CLI::App &verb) {
    return verb.get_parent() == nullptr ? verb.get_name()
                                        : full_name(*verb.get_parent()) + " " + verb.get_name();
}

std::string usage_problem(const CLI::App &whole, const CLI::ParseError &problem) {
    const auto kind = static_cast<CLI::ExitCodes>(problem.get_exit_code());
    const std::string text = problem.what();
    if (kind == CLI::ExitCodes::ExtrasError || kind == CLI::ExitCodes::RequiredError) {
        const std::optional<std::string> leftover = leftover_problem(whole);
        return leftover ? *leftover : missing_problem(whole);
    }
    if (kind == CLI::ExitCodes::ConversionError) {
        if (const auto name = between(text, "Could not convert: ", " = ")) {
            return fmt::format("{}: '{}' is not a number", *name,
                               between(text, " = ", "").value_or(""));
        }
        return text;
    }
    if (kind == CLI::ExitCodes::ValidationError) {
        return invalid_value(text);
    }
    if (kind == CLI::ExitCodes::ArgumentMismatch) {
        if (const auto type = between(text, " required ", " missing")) {
            return fmt::format("{} needs a value: {}", text.substr(0, text.find(':')), *type);
        }
        if (text.find(" At Most 1 required") != std::string::npos) {
            return text.substr(0, text.find(':')) + " is given more than once";
        }
        return pair_problem(text, " was given a disallowed flag override", "{} takes no value{}");
    }
    if (kind == CLI::ExitCodes::ExcludesError) {
        return pair_problem(text, " excludes ", "{} and {} exclude each other");
    }
    return pair_problem(text, " requires ", "{} needs {}");
}

std::string usage_sentence(const CLI::App &whole, const CLI::ParseError &problem) {
    return with_help(usage_problem(whole, problem), innermost_verb(whole));
}

std::string unknown_command(const CLI::App &verb, const std::string &word) {
    return with_help(
        fmt::format("unknown command '{}'{}", word, did_you_mean(word, verbs_of(verb))), verb);
}

} // namespace engr_app
