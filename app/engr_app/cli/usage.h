// What is wrong with a command line, in a sentence.
#pragma once

#include <string>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

namespace engr_app {

/** @return the parser of the innermost verb that the command line has named so far */
[[nodiscard]] const CLI::App &innermost_verb(const CLI::App &whole);

/** @return the name of a verb from the program's on, as in "engr_app channel set" */
[[nodiscard]] std::string full_name(const CLI::App &verb);

/** @return what is wrong, without a hint at the help, as in "--timeout: invalid value 'x' ..." */
[[nodiscard]] std::string usage_problem(const CLI::App &whole, const CLI::ParseError &problem);

/** @return the same with the help that says how it is right */
[[nodiscard]] std::string usage_sentence(const CLI::App &whole, const CLI::ParseError &problem);

/** @return a sentence for a word that is no verb of this one */
[[nodiscard]] std::string unknown_command(const CLI::App &verb, const std::string &word);

} // namespace engr_app
