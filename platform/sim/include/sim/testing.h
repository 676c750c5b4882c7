/*
 * The simulated port in GoogleTest. Failures print the seed and the line that reruns them.
 *
 *     struct server_task : sim::test {};
 *     TEST_F(server_task, closes_a_client_after_120_s_of_silence) { ... world.connect(6668) ... }
 *
 *     TEST(stop, ends_whatever_the_client_does) {
 *         sim::expect_all_seeds(1000, [](sim::world &world) { ... EXPECT_... });
 *     }
 */
#pragma once

#include "sim/explore.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>
#include <string>

namespace sim {

/** Whether the address sanitizer watches this build. A step then takes ten times as long, and what
 * it finds shows under few schedules: the many are for the plain build. */
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool is_sanitized = true;
#elif defined(__has_feature)
inline constexpr bool is_sanitized = __has_feature(address_sanitizer);
#else
inline constexpr bool is_sanitized = false;
#endif

/** The line that repeats the current test with a seed, or with decisions of a systematic search. */
inline std::string rerun_line(uint64_t seed, const std::string &decisions = {}) {
    std::ostringstream line;
    line << "ENGR_SIM_SEED=" << seed;
    if (!decisions.empty()) {
        line << " ENGR_SIM_DECISIONS='" << decisions << "'";
    }
    line << ' ' << program_invocation_name;
    if (const auto *info = ::testing::UnitTest::GetInstance()->current_test_info()) {
        line << " --gtest_filter=" << info->test_suite_name() << '.' << info->name();
    }
    return line.str();
}

/** Fixture with a world; whatever is left over at its end is a failure. */
class test : public ::testing::Test {
  public:
    /** A derived fixture chooses its options here. ENGR_SIM_SEED takes precedence. */
    explicit test(options chosen = {}) : world(with_environment(std::move(chosen))) {}
    ~test() override {
        for (const std::string &problem : world.finish()) {
            ADD_FAILURE() << problem;
        }
        if (HasFailure()) {
            std::fprintf(stderr, "seed %llu; to rerun: %s\nlast lines of the log:\n%s%s",
                         static_cast<unsigned long long>(world.seed()),
                         rerun_line(world.seed()).c_str(), world.log().text(40).c_str(),
                         world.trace_text().c_str());
        }
    }

  protected:
    sim::world world;
};

/** Reports the failure of a search as one of the current test. */
inline void report(const search_result &found, bool by_schedule) {
    if (!found.failure) {
        return;
    }
    const run_result &run = *found.failure;
    std::ostringstream text;
    text << "run " << found.runs << ", seed " << run.seed;
    if (run.nth != 0) {
        text << ", failing call " << run.nth;
    }
    text << "; to rerun: " << rerun_line(run.seed, by_schedule ? run.decisions : "") << '\n';
    for (const std::string &problem : run.problems) {
        text << problem << '\n';
    }
    ADD_FAILURE() << text.str() << "last lines of the log:\n" << run.log << run.trace;
}

/** Stops a search at the first failed expectation. */
inline bool no_failure_yet(const run_result &) {
    return !::testing::Test::HasFailure();
}

/** The story holds under so many seeds; under a tenth of them when sanitized, and under
 * ENGR_SIM_SEED alone when that is set. */
inline void expect_all_seeds(uint64_t count, const story &body, const options &chosen = {}) {
    const options real = with_environment(chosen);
    if (std::getenv("ENGR_SIM_SEED") != nullptr) {
        count = 1;
    } else if (is_sanitized) {
        count = (count + 9) / 10;
    }
    report(try_seeds(count, body, real, no_failure_yet), false);
}

/**
 * The story holds under all schedules within the bounds; a search that runs_max ends fails.
 *
 * @return how many schedules there were
 */
inline uint64_t expect_all_schedules(const story &body, search_bounds bounds = {},
                                     const options &chosen = {.quiet_points = false}) {
    const options real = with_environment(chosen);
    if (!real.decisions.empty()) {
        bounds.runs_max = 1;
    }
    const search_result found = try_all_schedules(body, bounds, real, no_failure_yet);
    report(found, true);
    EXPECT_TRUE(found.failure || found.complete || !real.decisions.empty())
        << "not all schedules tried after " << found.runs << " runs";
    return found.runs;
}

/**
 * The story holds whichever single call of the operation fails.
 *
 * @return how many runs met the fault
 */
inline uint64_t expect_survives_each_failure(std::string_view operation, const story &body,
                                             const nth_failure_options &failing = {},
                                             const options &chosen = {}) {
    SCOPED_TRACE(std::string("each call of ") + std::string(operation) + " fails in turn");
    const search_result found =
        for_each_nth_failure(operation, body, failing, with_environment(chosen), no_failure_yet);
    report(found, false);
    EXPECT_TRUE(found.failure || found.complete) << "no end after " << found.runs << " runs";
    EXPECT_GT(found.runs, 1U) << operation << " was never called";
    return found.runs == 0 ? 0 : found.runs - 1;
}

} // namespace sim
