// The arguments of a verb over CLI11.
#include "arguments.h"

#include <CLI/CLI.hpp>

namespace engr_app {

void arguments::flag(const char *names, bool &set, const char *help) {
    parser_.add_flag(names, set, help);
}

void arguments::option(const char *names, std::string &value, const char *value_name,
                       const char *help) {
    parser_.add_option(names, value, help)->type_name(value_name);
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

void arguments::notes(const std::string &text) {
    parser_.footer(text);
}

} // namespace engr_app
