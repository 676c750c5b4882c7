/* Timers: due ones are delivered one after the other on a simulated thread of the port. */
#include "core.h"

#include <algorithm>

namespace sim {

void timer_state::find_next_due() {
    next_due_ms = never;
    for (const auto &[id, timer] : timers) {
        next_due_ms = std::min(next_due_ms, timer.due_ms);
    }
}

namespace {

/** Takes the timer that is due first; 0 when none is due. */
uint16_t take_due(timer_state &state, uint64_t now_ms) {
    uint16_t first = 0;
    for (const auto &[id, timer] : state.timers) {
        if (timer.due_ms > now_ms) {
            continue;
        }
        const timer_record *best = first != 0 ? &state.timers.at(first) : nullptr;
        if (best == nullptr || timer.due_ms < best->due_ms ||
            (timer.due_ms == best->due_ms && timer.order < best->order)) {
            first = id;
        }
    }
    if (first != 0) {
        timer_record &taken = state.timers.at(first);
        if (taken.period_ms == 0) {
            taken.due_ms = never;
        } else {
            // Expiries missed because of a long callback are skipped.
            taken.due_ms += taken.period_ms * ((now_ms - taken.due_ms) / taken.period_ms + 1);
        }
        state.find_next_due();
    }
    return first;
}

void run_timers(core &core) {
    timer_state &state = core.timers;
    while (true) {
        core.threads.wait({.what = "a timer", .deadline = &state.next_due_ms}, [&core, &state] {
            return core.closing || state.next_due_ms <= core.threads.now_ms();
        });
        if (core.closing) {
            return;
        }
        const uint16_t id = take_due(state, core.threads.now_ms());
        if (id == 0) {
            continue;
        }
        const timer_record due = state.timers.at(id);
        state.running_id = id;
        core.threads.changed();
        due.callback(id, due.argument);
        state.running_id = 0;
        core.threads.changed();
        core.threads.point();
    }
}

} // namespace
} // namespace sim

int32_t sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer_id) {
    sim::call call(sim::operation::sys_add_timer);
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::timer_state &state = core.timers;
    if (callback == nullptr || timer_id == nullptr || state.timers.size() == UINT16_MAX) {
        return call.done(-1);
    }
    do {
        ++state.last_id;
    } while (state.last_id == 0 || state.timers.count(state.last_id) != 0);
    if (state.context == nullptr) {
        state.context = &core.threads.start("timers", [&core] { sim::run_timers(core); });
        state.context->is_service = true;
    }
    state.timers[state.last_id] = {
        .callback = callback, .argument = argument, .maker = core.threads.self().name};
    *timer_id = state.last_id;
    return call.done(0);
}

int32_t sys_start_timer(uint16_t timer_id, uint32_t milliseconds, int32_t type) {
    sim::call call(sim::operation::sys_start_timer, {timer_id, milliseconds, type});
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::timer_state &state = core.timers;
    const auto found = state.timers.find(timer_id);
    if (found == state.timers.end() || milliseconds == 0 ||
        (type != SYS_TIMER_ONE_SHOT && type != SYS_TIMER_PERIODIC)) {
        return call.done(-1);
    }
    found->second.due_ms = core.threads.now_ms() + milliseconds;
    found->second.period_ms = type == SYS_TIMER_PERIODIC ? milliseconds : 0;
    found->second.order = ++state.starts;
    state.find_next_due();
    return call.done(0);
}

int32_t sys_stop_timer(uint16_t timer_id) {
    sim::call call(sim::operation::sys_stop_timer, {timer_id});
    if (call.fails()) {
        return call.failed();
    }
    sim::timer_state &state = sim::current_core().timers;
    const auto found = state.timers.find(timer_id);
    if (found == state.timers.end()) {
        return call.done(-1);
    }
    found->second.due_ms = sim::never;
    state.find_next_due();
    return call.done(0);
}

int32_t sys_delete_timer(uint16_t timer_id) {
    sim::call call(sim::operation::sys_delete_timer, {timer_id});
    if (call.fails()) {
        return call.failed();
    }
    sim::core &core = sim::current_core();
    sim::timer_state &state = core.timers;
    if (state.timers.erase(timer_id) == 0) {
        return call.done(-1);
    }
    state.find_next_due();
    if (&core.threads.self() != state.context) {
        const std::function<sim::thread *()> deliverer = [&state] { return state.context; };
        core.threads.wait({.what = "the end of the callback of timer",
                           .detail = timer_id,
                           .bounded = true,
                           .blocker = &deliverer},
                          [&state, timer_id] { return state.running_id != timer_id; });
    }
    return call.done(0);
}

int32_t IsThisSysTimerRun(uint16_t timer_id) {
    sim::call call(sim::operation::IsThisSysTimerRun, {timer_id});
    if (call.fails()) {
        return call.failed();
    }
    const auto &timers = sim::current_core().timers.timers;
    const auto found = timers.find(timer_id);
    return call.done(found != timers.end() && found->second.due_ms != sim::never ? 1 : 0);
}
