/* Time of day and sleeping, in virtual time. */
#include "core.h"

#include "platform/clock.h"

uint32_t uni_time_get_posix(void) {
    sim::call call(sim::operation::uni_time_get_posix);
    if (call.fails()) {
        return static_cast<uint32_t>(call.failed());
    }
    const uint32_t now = sim::world::current().posix_s();
    call.end(now);
    return now;
}

namespace {

void let_time_pass(uint32_t milliseconds, bool stoppable) {
    sim::scheduler &threads = sim::current_core().threads;
    if (milliseconds == 0) {
        threads.point(true);
        return;
    }
    const uint64_t end = threads.now_ms() + milliseconds;
    threads.wait({.what = "the end of a sleep", .deadline = &end, .stoppable = stoppable},
                 [] { return false; });
}

} // namespace

void kelo_hal_system_sleep(uint32_t milliseconds) {
    sim::call call(sim::operation::kelo_hal_system_sleep, {milliseconds});
    if (!call.fails() && !sim::current_core().threads.self().told_to_stop) {
        let_time_pass(milliseconds, true);
    }
    call.end(0);
}

void kelo_hal_system_delay(uint32_t milliseconds) {
    sim::call call(sim::operation::kelo_hal_system_delay, {milliseconds});
    let_time_pass(milliseconds, false);
    call.end(0);
}
