// A session in other forms: an input of a fuzz target, a test of the agent, a gateway to start.
#pragma once

#include "compare/recording.h"

#include <cstdint>
#include <string>

namespace replay {

/** The app that sent most frames; 0 when none sent any. */
[[nodiscard]] uint32_t busiest_app(const recording &of);

/**
 * An input of fuzz_server: what one app sent, in one piece, under the key of its gateway, which is
 * not activated.
 *
 * @throws support::input_error  the app sent nothing
 */
[[nodiscard]] std::string fuzz_seed_of(const recording &from, uint32_t client);

/**
 * A test in C++ for tests/agent: apps do in it what they did, and expect what they got.
 *
 * @param name  of the test, a C++ identifier
 * @throws support::input_error  it needs what those tests have no words for
 */
[[nodiscard]] std::string test_case_of(const recording &from, const std::string &name);

/** The file's name without its directory and ending, as a C++ identifier. */
[[nodiscard]] std::string identifier_of(const std::string &file);

/** The session's site, as a site file for the daemon. */
[[nodiscard]] std::string site_of(const recording &from);

/** The session's scenario, with the faults and callbacks that the operator set last, as a scenario
 * file. */
[[nodiscard]] std::string scenario_of(const recording &from);

} // namespace replay
