// What --help and the help command show.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace engr_app {

/** Lays out the help of the program and of the verbs that are added to it later. */
void set_help_layout(CLI::App &whole, std::size_t columns);

/** @return the help of a verb, named as in {"channel", "set"}; throws a failure when there is none
 */
[[nodiscard]] std::string help_of(CLI::App &whole, const std::vector<std::string> &verb);

} // namespace engr_app
