// The runs of a verb: with one gateway, or with many at once.
#pragma once

#include "verbs/verb.h"

namespace engr_app {

struct global_options;
class console;
class screen;

/**
 * Does the work of a verb for the gateways that the options name, each in a session, with a
 * console and on a thread of its own when there are several. Shows every failure; returns the
 * exit code: 0 only when all succeeded.
 */
[[nodiscard]] int run_verb(const verb_work &work, const global_options &options, screen &shown_on);

} // namespace engr_app
