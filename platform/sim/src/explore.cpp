/*
 * Stories: each run in a world of its own, on a stack that can be abandoned when the story cannot
 * go on.
 */
#include "sim/explore.h"

#include "core.h"

namespace sim {

namespace {

/** Number of log lines that a search shows with its failure. */
constexpr size_t last_lines = 40;

struct running_story {
    const story &body;
    world &in;
    core &in_core;
    fiber outside;
    bool done = false;
};

void run_body(void *argument) {
    auto &running = *static_cast<running_story *>(argument);
    running.body(running.in);
    running.in.finish();
    running.done = true;
    running.in_core.threads.main().context->end_with(running.outside);
}

struct run_request {
    options chosen;
    std::unique_ptr<chooser> decides = nullptr;
    std::optional<prepared_failure> failing = {};
    bool arm_at_start = false;
    run_check check = {};
    bool is_search = true;
};

/**
 * Runs a story once.
 *
 * @param[out] fine  whether it had no problem and passed the check
 */
run_result run_once(run_request request, const story &body, bool &fine) {
    run_result result;
    result.seed = request.chosen.seed;
    const std::unique_ptr<world> in =
        make_world(std::move(request.chosen), std::move(request.decides));
    core &in_core = core_of(*in);
    in_core.prepared = std::move(request.failing);
    if (request.arm_at_start) {
        arm_failure();
    }
    running_story running = {.body = body, .in = *in, .in_core = in_core, .outside = {}};
    in_core.outside = &running.outside;
    in_core.threads.main().context = std::make_unique<fiber>(run_body, &running);
    running.outside.switch_to(*in_core.threads.main().context);
    in_core.finished = true;
    result.ended_early = !running.done;
    result.problems = in_core.problems;
    result.steps = in_core.threads.steps();
    for (const fault &each : in_core.records.faults) {
        result.reached = result.reached || (each.may_stay_unreached && each.strikes != 0);
    }
    fine = result.problems.empty() && (!request.check || request.check(result));
    if (!fine || !request.is_search) {
        result.decisions = in_core.threads.decisions();
        result.log = in_core.log.text(request.is_search ? last_lines : 0);
        result.trace = in_core.records.trace;
    }
    return result;
}

} // namespace

run_result run_story(const options &chosen, const story &body) {
    bool fine = false;
    return run_once({.chosen = chosen, .is_search = false}, body, fine);
}

search_result try_seeds(uint64_t count, const story &body, const options &chosen,
                        const run_check &check) {
    search_result found;
    for (uint64_t seed = chosen.seed; found.runs < count; ++seed) {
        options one = chosen;
        one.seed = seed;
        bool fine = false;
        run_result run = run_once({.chosen = std::move(one), .check = check}, body, fine);
        ++found.runs;
        if (!fine) {
            found.failure = std::move(run);
            return found;
        }
    }
    found.complete = true;
    return found;
}

search_result try_all_schedules(const story &body, search_bounds bounds, const options &chosen,
                                const run_check &check) {
    search_result found;
    schedule_search search(bounds.preemptions_max, bounds.whole_story);
    while (found.runs < bounds.runs_max) {
        search.begin_run();
        run_request request = {.chosen = chosen, .check = check};
        if (chosen.decisions.empty()) {
            request.decides = std::make_unique<searching_chooser>(search);
        }
        bool fine = false;
        run_result run = run_once(std::move(request), body, fine);
        ++found.runs;
        if (!fine) {
            found.failure = std::move(run);
            return found;
        }
        if (!search.next_schedule()) {
            found.complete = true;
            return found;
        }
    }
    return found;
}

void begin_race() {
    current_core().threads.decides().race(true);
}

void end_race() {
    current_core().threads.decides().race(false);
}

std::vector<std::string_view> operation_names() {
    std::vector<std::string_view> names;
    for (const operation_info &each : operations) {
        names.push_back(each.name);
    }
    return names;
}

search_result for_each_nth_failure(std::string_view operation, const story &body,
                                   const nth_failure_options &failing, const options &chosen,
                                   const run_check &check) {
    search_result found;
    for (uint64_t n = failing.first; n <= failing.last; ++n) {
        const trigger when = failing.lasting ? from_nth(n) : nth(n);
        bool fine = false;
        run_result run =
            run_once({.chosen = chosen,
                      .failing = prepared_failure{operation_named(operation), when, failing.how},
                      .arm_at_start = failing.from_start,
                      .check = check},
                     body, fine);
        run.nth = n;
        ++found.runs;
        if (!fine) {
            found.failure = std::move(run);
            return found;
        }
        if (!run.reached) {
            found.complete = true;
            return found;
        }
    }
    return found;
}

void arm_failure() {
    core &world = current_core();
    if (world.prepared) {
        const prepared_failure &ready = *world.prepared;
        const fault_id added = world.add_fault(ready.target, ready.when, ready.how);
        world.records.faults[added].may_stay_unreached = true;
        world.prepared.reset();
    }
}

} // namespace sim
