/* Every single failure of the port in whole stories: the k-th call of each operation fails, once or
 * from then on, for k = 1, 2, ... until a run meets no fault. */
#include "end_process.h"
#include "whole_stories.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace {

/** Operations that by their contract succeed when their arguments are right, or return nothing. */
constexpr std::string_view never_fail[] = {
    "Free", "PrintLog", "uni_time_get_posix", "kelo_hal_system_sleep", "kelo_hal_system_delay",
    "kelo_hal_critical_section_enter", "kelo_hal_critical_section_leave", "GetThrdSta",
    "DeleteThrdHandle", "GetThrdSelfId", "kelo_hal_mutex_lock", "kelo_hal_mutex_unlock",
    "kelo_hal_mutex_release", "sys_stop_timer", "sys_delete_timer", "IsThisSysTimerRun",
    "cmmod_unreg_msgcb", "put_rfc_data", "kelo_hal_net_get_errno",
    // A socket is gone after its close, whatever that returns.
    "kelo_hal_net_close", "engr_file_close"};

/** Operations that may do a part of what was asked. */
constexpr std::string_view transfers[] = {"kelo_hal_net_send", "kelo_hal_net_recv",
                                          "engr_file_read", "engr_file_write"};

bool has(std::span<const std::string_view> names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/** A way to fail. */
struct way {
    const char *words;
    bool lasting;
    int64_t partial_bytes = -1;
};

/** Schedules under which each failure is tried; ENGR_SWEEP_SEEDS sets another number. */
uint64_t seed_count() {
    const char *more = std::getenv("ENGR_SWEEP_SEEDS");
    return more != nullptr ? std::strtoull(more, nullptr, 10) : sim::is_sanitized ? 1 : 2;
}

enum class outcome { passed, not_reached, failed };

/** One run in which the n-th call fails. */
outcome run_with_failure(const whole_story &told, const recorded_answers &right,
                         std::string_view operation, const way &failing, uint64_t n,
                         uint64_t seed) {
    const auto story = [&](sim::world &world) {
        story_run run(world, &right);
        told.tell(run);
        run.end();
    };
    const sim::search_result found = sim::for_each_nth_failure(
        operation, story,
        {.how = {.partial_bytes = failing.partial_bytes},
         .lasting = failing.lasting,
         .from_start = false,
         .first = n,
         .last = n},
        {.seed = seed, .steps_without_time_max = 100'000}, sim::no_failure_yet);
    sim::report(found, false);
    return found.failure    ? outcome::failed
           : found.complete ? outcome::not_reached
                            : outcome::passed;
}

outcome in_own_process(const std::function<outcome()> &run) {
    const pid_t child = fork();
    if (child == 0) {
        const outcome found = run();
        std::fflush(stdout);
        end_process(static_cast<int>(found));
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) > static_cast<int>(outcome::failed)) {
        return outcome::failed;
    }
    return static_cast<outcome>(WEXITSTATUS(status));
}

class fault_sweeps : public testing::TestWithParam<whole_story> {
  protected:
    /** Tells the story without a fault; returns its answers. */
    static recorded_answers record(uint64_t seed) {
        recorded_answers right;
        const auto once = [&] {
            const sim::run_result sound = sim::run_story({.seed = seed}, [&](sim::world &world) {
                story_run run(world, nullptr);
                GetParam().tell(run);
                right = run.answers();
                run.end();
            });
            for (const std::string &problem : sound.problems) {
                ADD_FAILURE() << problem;
            }
            return HasFailure() ? outcome::failed : outcome::passed;
        };
        EXPECT_EQ(GetParam().own_process ? in_own_process(once) : once(), outcome::passed)
            << "expected the story to hold without a fault";
        return right;
    }

    /** Fails the calls of one operation in turn; returns the number of runs that met the fault. */
    static uint64_t sweep(const recorded_answers &right, std::string_view operation,
                          const way &failing, uint64_t seed) {
        for (uint64_t n = 1;; ++n) {
            const auto once = [&] {
                return run_with_failure(GetParam(), right, operation, failing, n, seed);
            };
            const outcome found = GetParam().own_process ? in_own_process(once) : once();
            EXPECT_TRUE(found != outcome::failed) << "expected the story to hold when call " << n
                                                  << " of " << operation << ' ' << failing.words;
            if (found == outcome::not_reached || HasFailure()) {
                return n - 1;
            }
        }
    }

    /** Fails every call of every operation; returns the number of runs that met a fault. */
    static uint64_t sweep_all(uint64_t seed) {
        const recorded_answers right = record(seed);
        uint64_t met = 0;
        for (const std::string_view operation : sim::operation_names()) {
            if (HasFailure() || has(never_fail, operation)) {
                continue;
            }
            met += sweep(right, operation, {"fails", false}, seed);
            met += sweep(right, operation, {"and all later ones fail", true}, seed);
            if (has(transfers, operation)) {
                met += sweep(right, operation, {"transfers one byte", false, 1}, seed);
            }
        }
        return met;
    }

  private:
    working_directory files_; // of the agent's configuration and logs
};

TEST_P(fault_sweeps, leave_right_answers_and_a_working_agent) {
    uint64_t met = 0;
    for (uint64_t seed = 1; seed <= seed_count() && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        met += sweep_all(seed);
    }
    EXPECT_GT(met, 10U) << "expected faults to be met";
    std::printf("%llu faults\n", static_cast<unsigned long long>(met));
}

INSTANTIATE_TEST_SUITE_P(of, fault_sweeps,
                         testing::ValuesIn(whole_stories().begin(), whole_stories().end()),
                         [](const auto &one) { return std::string(one.param.name); });

} // namespace
