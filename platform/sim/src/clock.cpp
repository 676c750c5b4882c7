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

void kelo_hal_system_sleep(uint32_t milliseconds) {
    sim::call call(sim::operation::kelo_hal_system_sleep, {milliseconds});
    sim::scheduler &threads = sim::current_core().threads;
    if (!call.fails() && !threads.self().told_to_stop) {
        const uint64_t end = threads.now_ms() + milliseconds;
        if (milliseconds == 0) {
            threads.point(true);
        } else {
            threads.wait({.what = "the end of a sleep", .deadline = &end, .stoppable = true},
                         [] { return false; });
        }
    }
    call.end(0);
}
