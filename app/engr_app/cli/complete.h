// What the program tells shells and manuals about its command line.
#pragma once

namespace CLI {
class App;
}

namespace engr_app {

/**
 * Answers a shell that completes a command line, and the build that makes the manual page; without
 * network.
 *
 * @param app  with its options and verbs; it has not parsed anything. If it is such a request the
 *             options of all verbs are declared
 * @return whether the command line was such a request, and the program is done
 */
[[nodiscard]] bool answer_about_command_line(CLI::App &app, int count,
                                             const char *const *arguments);

/** Remembers the ids of a command line that was carried out. */
void remember_given_ids(const CLI::App &app);

} // namespace engr_app
