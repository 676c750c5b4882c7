// The arguments of a verb over CLI11.
#include "verbs/arguments.h"

#include <algorithm>
#include <utility>

#include <CLI/CLI.hpp>

namespace engr_app {

void arguments::flag(const char *names, bool &set, const char *help) {
    parser_.add_flag(names, set, help);
}

void arguments::option(const char *names, std::string &value, const char *value_name,
                       const char *help) {
    parser_.add_option(names, value, help)->type_name(value_name);
}

void arguments::required_option(const char *names, std::string &value, const char *value_name,
                                const char *help) {
    parser_.add_option(names, value, help)->type_name(value_name)->required();
}

void arguments::option(const char *names, std::vector<std::string> &values, const char *value_name,
                       const char *help) {
    // One value each time, so that positional arguments may follow.
    parser_.add_option(names, values, help)->type_name(value_name)->expected(1)->take_all();
}

void arguments::option(const char *names, double &value, const char *value_name, const char *help) {
    parser_.add_option(names, value, help)->type_name(value_name)->check(CLI::PositiveNumber);
}

void arguments::option(const char *names, std::uint64_t &value, const char *value_name,
                       const char *help) {
    parser_.add_option(names, value, help)->type_name(value_name)->check(CLI::PositiveNumber);
}

void arguments::option(const char *names, std::int64_t &value, std::int64_t least,
                       std::int64_t greatest, const char *value_name, const char *help) {
    parser_.add_option(names, value, help)
        ->type_name(value_name)
        ->check(CLI::Range(least, greatest));
}

void arguments::required(const char *name, std::string &value, const char *help) {
    parser_.add_option(name, value, help)->required();
}

void arguments::optional(const char *name, std::string &value, const char *help) {
    parser_.add_option(name, value, help);
}

void arguments::required(const char *name, std::int64_t &value, const char *help) {
    parser_.add_option(name, value, help)->required();
}

void arguments::required(const char *name, std::vector<std::string> &values, const char *help) {
    parser_.add_option(name, values, help)->required();
}

void arguments::optional(const char *name, std::vector<std::string> &values, const char *help) {
    parser_.add_option(name, values, help);
}

void arguments::required(const char *name, std::string &value,
                         const std::vector<std::string> &choices, const char *help) {
    parser_.add_option(name, value, help)->required()->check(CLI::IsMember(choices));
}

verb_work arguments::subverbs(const std::vector<verb> &several) {
    parser_.require_subcommand(1);
    std::vector<std::pair<const CLI::App *, verb_work>> works;
    for (const verb &one : several) {
        CLI::App *parser = parser_.add_subcommand(one.name, one.summary);
        arguments declared(*parser);
        works.emplace_back(parser, one.declare(declared));
    }
    return [works = std::move(works)](gateway_session &session) {
        const auto given = std::ranges::find_if(
            works, [](const auto &candidate) { return candidate.first->parsed(); });
        return given->second(session); // the parser insists on one
    };
}

void arguments::concerns_no_gateway() {
    parser_.callback([this_parser = &parser_] {
        const CLI::App *whole = this_parser;
        while (whole->get_parent() != nullptr) {
            whole = whole->get_parent();
        }
        if (whole->count("--all") > 0 || whole->count("--gateway") > 1) {
            throw CLI::ValidationError(this_parser->get_name(),
                                       "it concerns no single gateway, so it goes with neither "
                                       "--all nor several --gateway");
        }
    });
}

void arguments::notes(const std::string &text) {
    parser_.footer(text);
}

} // namespace engr_app
