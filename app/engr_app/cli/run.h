// Running a verb, with one gateway or with several at once.
#pragma once

#include "verbs/verb.h"

namespace engr_app {

struct global_options;
class console;
class screen;

/**
 * Does the work of a verb with each gateway that the options name; with several, each has a
 * session, a console and a thread of its own. Failures are shown.
 *
 * @return the exit code; 0 only when the work succeeded with all
 */
[[nodiscard]] int run_verb(const verb_work &work, const global_options &options, screen &shown_on);

} // namespace engr_app
