#include "support/completion.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <string_view>
#include <utility>

namespace support {
namespace {

bool takes_value(const CLI::Option &option) {
    return option.get_items_expected_max() > 0;
}

/** Whether a word is no value of the option, since the value may be left out. */
bool leaves_value_out(const CLI::Option &option, const std::string &word) {
    return option.get_items_expected_min() == 0 && word.starts_with('-');
}

/** The option of that name here or, since global options may follow a verb, further up. */
const CLI::Option *option_of_name(const CLI::App &app, const std::string &name) {
    for (const CLI::App *level = &app; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option *each : level->get_options()) {
            if (!each->get_positional() && each->check_name(name)) {
                return each;
            }
        }
    }
    return nullptr;
}

std::vector<const CLI::Option *> positionals_of(const CLI::App &app) {
    return app.get_options([](const CLI::Option *each) { return each->get_positional(); });
}

/** A place of the command line, behind the words before it. */
struct place {
    const CLI::App *verb;
    std::size_t positionals = 0;                 /**< words that are neither options nor values */
    const CLI::Option *waiting_option = nullptr; /**< whose value comes next */
    bool only_words = false;                     /**< after "--" */
};

void pass_word(place &here, const std::string &word) {
    const CLI::Option *const option_before = std::exchange(here.waiting_option, nullptr);
    if (option_before != nullptr && !leaves_value_out(*option_before, word)) {
        return;
    }
    if (word == "--") {
        here.only_words = true;
    } else if (!here.only_words && word.size() > 1 && word.front() == '-') {
        const CLI::Option *option = option_of_name(*here.verb, word);
        here.waiting_option = option != nullptr && takes_value(*option) ? option : nullptr;
    } else {
        const auto verbs = here.verb->get_subcommands(
            [&](const CLI::App *each) { return each->get_name() == word; });
        if (here.positionals == 0 && !verbs.empty()) {
            here.verb = verbs.front();
        } else {
            ++here.positionals;
        }
    }
}

/** The words among the choices in the name of a kind, as in "up|down" and "RESULT|off". */
std::vector<completion> words_of_kind(const std::string &kind) {
    std::vector<completion> found;
    for (const std::string &each : CLI::detail::split(kind, '|')) {
        const bool is_word = std::all_of(each.begin(), each.end(), [](char one) {
            return (one >= 'a' && one <= 'z') || (one >= '0' && one <= '9');
        });
        if (is_word) {
            found.push_back({each});
        }
    }
    return found;
}

/** Values of an option or positional: the words that it lists, else what the source knows. */
std::vector<completion> values_of(const CLI::Option &option, const value_source &values) {
    // A check against a list shows in the name of the type, as in "TEXT:{add,remove}".
    const std::string type = option.get_type_name();
    const std::size_t begin = type.find('{');
    const std::size_t end = type.find('}', begin);
    std::vector<completion> found;
    if (begin != std::string::npos && end != std::string::npos) {
        for (const std::string &each :
             CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',')) {
            found.push_back({each});
        }
        return found;
    }
    const std::string kind =
        option.get_positional() ? option.get_name(true) : type.substr(0, type.find(':'));
    if (kind == "FILE" || kind == "IMAGE" || kind == "DIR") {
        return {{file_names}};
    }
    found = words_of_kind(kind);
    return found.empty() && values ? values(kind) : found;
}

std::vector<completion> options_from(const CLI::App &app) {
    std::vector<completion> found;
    for (const CLI::App *level = &app; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option *each : level->get_options()) {
            for (const std::string &name : each->get_lnames()) {
                found.push_back({"--" + name, each->get_description()});
            }
        }
    }
    return found;
}

std::vector<completion> candidates(const place &here, const std::string &word,
                                   const value_source &values) {
    if (here.waiting_option != nullptr && !leaves_value_out(*here.waiting_option, word)) {
        return values_of(*here.waiting_option, values);
    }
    if (!here.only_words && word.starts_with('-')) {
        return options_from(*here.verb);
    }
    std::vector<completion> found;
    if (here.positionals == 0) {
        for (const CLI::App *each :
             here.verb->get_subcommands([](const CLI::App *) { return true; })) {
            if (!each->get_group().empty()) {
                found.push_back({each->get_name(), each->get_description()});
            }
        }
    }
    const auto positionals = positionals_of(*here.verb);
    if (!positionals.empty()) {
        const std::size_t at = std::min(here.positionals, positionals.size() - 1);
        if (here.positionals == at || positionals[at]->get_items_expected_max() > 1) {
            const auto more = values_of(*positionals[at], values);
            found.insert(found.end(), more.begin(), more.end());
        }
    }
    return found;
}

} // namespace

std::vector<completion> complete(const CLI::App &app, std::span<const std::string> words,
                                 const value_source &values) {
    place here{&app};
    std::string last = words.empty() ? "" : words.back();
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        pass_word(here, words[i]);
    }
    std::string before; // "--option=" of a word that has both
    if (const std::size_t sign = last.find('=');
        !here.only_words && last.starts_with("--") && sign != std::string::npos) {
        before = last.substr(0, sign + 1);
        here.waiting_option = option_of_name(*here.verb, last.substr(0, sign));
        last.erase(0, sign + 1);
        if (here.waiting_option == nullptr) {
            return {};
        }
    }
    std::vector<completion> found = candidates(here, last, values);
    std::erase_if(found, [&](const completion &each) {
        return each.word != file_names && !each.word.starts_with(last);
    });
    for (completion &each : found) {
        each.word = each.word == file_names ? each.word : before + each.word;
    }
    return found;
}

bool answer_completion_request(const CLI::App &app, int count, const char *const *arguments,
                               const value_source &values) {
    if (count < 2 || std::string_view(arguments[1]) != completion_request) {
        return false;
    }
    const std::vector<std::string> words(arguments + 2, arguments + count);
    for (const completion &each : complete(app, words, values)) {
        const std::string first_line = each.help.substr(0, each.help.find('\n'));
        std::cout << each.word << '\t' << first_line << '\n';
    }
    return true;
}

} // namespace support
