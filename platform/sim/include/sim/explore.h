/*
 * Running one story many times: under many seeds, under all schedules, under each single failure. A
 * story runs in a world of its own, as its thread "main"; deadlock, livelock and hang end it (what
 * it owned is not released then) and are reported as problems. sim/testing.h has the same as
 * GoogleTest checks.
 */
#pragma once

#include "sim/world.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

using story = std::function<void(world &)>;

/** Result of one run of a story. */
struct run_result {
    uint64_t seed = 0;
    std::vector<std::string> problems; /**< empty: none */
    std::string decisions;             /**< a search: of its failure */
    std::string log;   /**< run_story: all lines; a search: the last ones of its failure */
    std::string trace; /**< when the options ask for it; a search: of its failure */
    uint64_t steps = 0;
    uint64_t nth = 0;         /**< for_each_nth_failure: which call failed */
    bool reached = false;     /**< for_each_nth_failure: whether it was reached */
    bool ended_early = false; /**< by deadlock, livelock or hang */
};

/** Result of a search. */
struct search_result {
    uint64_t runs = 0;
    bool complete = false;             /**< nothing is left to try */
    std::optional<run_result> failure; /**< the first run with a problem; the search ended there */
};

/** Called after each run; false ends the search with that run as its failure (for problems that a
 * story reports elsewhere). */
using run_check = std::function<bool(const run_result &)>;

/** Runs a story once. */
run_result run_story(const options &chosen, const story &body);

/** Runs a story under the seeds chosen.seed, chosen.seed + 1, ... */
search_result try_seeds(uint64_t count, const story &body, const options &chosen = {},
                        const run_check &check = {});

/** Bounds of a systematic search. */
struct search_bounds {
    /** Most preemptions in one run; most faults need one or two. */
    uint32_t preemptions_max = 2;
    uint64_t runs_max = 1'000'000;
    /** true: all schedules of the whole story; false: of its parts between begin_race() and
     * end_race(), with one schedule for the rest. */
    bool whole_story = true;
};

/** In a story of try_all_schedules with whole_story false: the part to search begins or ends here.
 * Elsewhere they do nothing. */
void begin_race();
void end_race();

/** Runs a story under all schedules within the bounds, depth first. Everything random but the
 * schedule is fixed. */
search_result try_all_schedules(const story &body, search_bounds bounds = {},
                                const options &chosen = {.quiet_points = false},
                                const run_check &check = {});

/** Which call fails in for_each_nth_failure. */
struct nth_failure_options {
    failure how = {};
    bool lasting = false; /**< all later calls fail too */
    /** true: calls count from the start of the story; false: from its call of arm_failure(). */
    bool from_start = true;
    uint64_t first = 1;      /**< first n that is tried */
    uint64_t last = 100'000; /**< last one; a search that comes beyond it is not complete */
};

/** Names of all operations: of each contract function. */
std::vector<std::string_view> operation_names();

/**
 * Runs a story in which the n-th call of an operation fails, for n = 1, 2, ... until a run meets no
 * fault, which ends the search complete.
 */
search_result for_each_nth_failure(std::string_view operation, const story &body,
                                   const nth_failure_options &failing = {},
                                   const options &chosen = {}, const run_check &check = {});

/** In a story of for_each_nth_failure with from_start false: counts from here. Elsewhere does
 * nothing. */
void arm_failure();

} // namespace sim
