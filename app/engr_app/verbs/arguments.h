// The arguments of one verb. It hides the parser's header, which takes seconds to compile.
#pragma once

#include "verbs/verb.h"

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace engr_app {

/// What is declared here is filled while the command line is parsed, before the verb's work runs;
/// the variables must live until then. `names` as in "-n,--count".
class arguments {
  public:
    explicit arguments(CLI::App &parser) : parser_(parser) {}

    void flag(const char *names, bool &set, const char *help);
    void option(const char *names, std::string &value, const char *value_name, const char *help);
    void option(const char *names, std::vector<std::string> &values, const char *value_name,
                const char *help);

    void required_option(const char *names, std::string &value, const char *value_name,
                         const char *help);

    /// A number greater than 0.
    void option(const char *names, double &value, const char *value_name, const char *help);
    void option(const char *names, std::uint64_t &value, const char *value_name, const char *help);

    /// A number within bounds.
    void option(const char *names, std::int64_t &value, std::int64_t least, std::int64_t greatest,
                const char *value_name, const char *help);

    void required(const char *name, std::string &value, const char *help);
    void optional(const char *name, std::string &value, const char *help);

    /// A whole number.
    void required(const char *name, std::int64_t &value, const char *help);

    /// At least one value, or any number of them; behind all other positional arguments.
    void required(const char *name, std::vector<std::string> &values, const char *help);
    void optional(const char *name, std::vector<std::string> &values, const char *help);

    /// One of these words.
    void required(const char *name, std::string &value, const std::vector<std::string> &choices,
                  const char *help);

    /// The verbs of this verb, such as "get" and "set"; the work is that of the one given.
    verb_work subverbs(const std::vector<verb> &several);

    /// The work concerns the network or files, and not one gateway: it is refused with --all and
    /// with several --gateway.
    void concerns_no_gateway();

    /// Behind the options in --help: rules and examples.
    void notes(const std::string &text);

  private:
    CLI::App &parser_;
};

} // namespace engr_app
