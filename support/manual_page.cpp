#include "support/manual_page.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <sstream>
#include <string_view>

namespace support {
namespace {

/** A text as an argument of a macro. */
std::string escaped(const std::string &text) {
    std::string out;
    for (const char each : text) {
        out += each == '\\' ? "\\e" : each == '-' ? "\\-" : std::string(1, each);
    }
    return out;
}

/** Text lines; a macro would begin with a full stop or an apostrophe. */
std::string text_line(const std::string &line) {
    const bool is_like_macro = !line.empty() && (line.front() == '.' || line.front() == '\'');
    return (is_like_macro ? "\\&" : "") + escaped(line) + "\n";
}

/** One sentence of running text, on lines of limited length. */
std::string sentence_lines(const std::string &sentence) {
    constexpr std::size_t columns = 76; // as written here; escaping adds a few
    std::istringstream words(sentence);
    std::string out;
    std::string line;
    for (std::string word; words >> word;) {
        if (!line.empty() && line.size() + 1 + word.size() > columns) {
            out += text_line(line);
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return out + (line.empty() ? "" : text_line(line));
}

/** Running text, each sentence on a line of its own. */
std::string sentences(const std::string &text) {
    std::string out;
    std::string sentence;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool ends_sentence = (text[i] == '.' || text[i] == ':') && i + 2 < text.size() &&
                                   text[i + 1] == ' ' &&
                                   std::isupper(static_cast<unsigned char>(text[i + 2])) != 0;
        sentence += text[i];
        if (ends_sentence) {
            out += sentence_lines(sentence);
            sentence.clear();
        }
    }
    return out + sentence_lines(sentence);
}

std::string value_name(const CLI::Option &option) {
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

std::string argument_macro(const std::string &name) {
    return "Ar " + escaped(name);
}

/** An option with its names and its value. */
std::string option_term(const CLI::Option &option) {
    std::string term;
    for (const std::string &name : option.get_snames()) {
        term += (term.empty() ? "Fl " : " , Fl ") + escaped(name);
    }
    for (const std::string &name : option.get_lnames()) {
        term += (term.empty() ? "Fl " : " , Fl ") + escaped("-" + name);
    }
    if (option.get_items_expected_max() > 0) {
        term += " " + argument_macro(value_name(option));
    }
    return term;
}

/** Options and positionals that are shown; of a verb's --help nobody has to be told. */
std::vector<const CLI::Option *> shown_options(const CLI::App &app) {
    return app.get_options([&](const CLI::Option *each) {
        return !each->get_group().empty() &&
               (app.get_parent() == nullptr || each != app.get_help_ptr());
    });
}

std::string options_list(const CLI::App &app) {
    std::string out;
    for (const CLI::Option *each : shown_options(app)) {
        out +=
            ".It " +
            (each->get_positional() ? argument_macro(each->get_name(true)) : option_term(*each)) +
            "\n" + sentences(each->get_description());
        if (!each->get_envname().empty()) {
            out += "Environment variable:\n.Ev " + each->get_envname() + " .\n";
        }
    }
    return out.empty() ? "" : ".Bl -tag -width Ds\n" + out + ".El\n";
}

std::string literal(const std::string &text) {
    if (text.empty()) {
        return "";
    }
    std::istringstream lines(text);
    std::string out = ".Bd -literal -offset indent\n";
    for (std::string line; std::getline(lines, line);) {
        out += line.empty() ? ".sp\n" : text_line(line);
    }
    return out + ".Ed\n";
}

std::string positional_words(const CLI::App &app) {
    std::string words;
    for (const CLI::Option *each :
         app.get_options([](const CLI::Option *of) { return of->get_positional(); })) {
        const bool is_list = each->get_items_expected_max() > 1;
        words += std::string(" ") + (each->get_required() ? "" : "Oo ") +
                 argument_macro(each->get_name(true)) + (is_list ? " ..." : "") +
                 (each->get_required() ? "" : " Oc");
    }
    return words;
}

std::vector<const CLI::App *> shown_verbs(const CLI::App &app) {
    return app.get_subcommands([](const CLI::App *each) { return !each->get_group().empty(); });
}

/** How a verb is called. */
std::string verb_synopsis(const CLI::App &verb, const std::string &path) {
    const auto shown = shown_options(verb);
    const bool has_options = std::any_of(shown.begin(), shown.end(), [](const CLI::Option *each) {
        return !each->get_positional();
    });
    const std::string positionals = positional_words(verb);
    return ".Nm\n.Cm " + escaped(path) + "\n" + (has_options ? ".Op Ar options\n" : "") +
           (positionals.empty() ? "" : "." + positionals.substr(1) + "\n") + ".Pp\n";
}

/** A verb, or a verb of a verb. */
std::string verb_section(const CLI::App &verb, const std::string &path) {
    const auto inner = shown_verbs(verb);
    std::string out = ".Ss " + escaped(path) + "\n";
    out += inner.empty() ? verb_synopsis(verb, path) : "";
    std::string description = verb.get_description() + ".";
    description.front() =
        static_cast<char>(std::toupper(static_cast<unsigned char>(description.front())));
    // The verbs of a verb inherit its notes.
    const bool has_own_notes = verb.get_footer() != verb.get_parent()->get_footer();
    out += sentences(description) + options_list(verb);
    out += has_own_notes ? literal(verb.get_footer()) : "";
    for (const CLI::App *each : inner) {
        out += verb_section(*each, path + " " + each->get_name());
    }
    return out;
}

} // namespace

std::string manual_page(const CLI::App &app, const std::string &summary) {
    const auto verbs = shown_verbs(app);
    std::string out = ".Sh NAME\n.Nm " + app.get_name() + "\n.Nd " + summary +
                      "\n.Sh SYNOPSIS\n.Nm\n.Op Ar options\n";
    if (!verbs.empty()) {
        out += ".Ar verb\n.Op Ar argument ...\n";
    }
    out += ".Sh DESCRIPTION\n" + sentences(app.get_description()) + ".Pp\nThe options are:\n" +
           options_list(app) + literal(app.get_footer());
    if (!verbs.empty()) {
        out += ".Sh COMMANDS\n";
    }
    for (const CLI::App *each : verbs) {
        out += verb_section(*each, each->get_name());
    }
    return out;
}

bool answer_manual_page_request(const CLI::App &app, const std::string &summary, int count,
                                const char *const *arguments) {
    if (count != 2 || std::string_view(arguments[1]) != manual_page_request) {
        return false;
    }
    std::cout << manual_page(app, summary);
    return true;
}

} // namespace support
