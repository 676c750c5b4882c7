/* Time of day and sleeping. */
#include "platform/clock.h"

#include "wait.h"

#include <sched.h>

#include <cerrno>
#include <ctime>

uint32_t uni_time_get_posix() {
    return static_cast<uint32_t>(time(nullptr));
}

void kelo_hal_system_sleep(uint32_t milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    pollfd stop_event_only[1];
    linux_port::wait_for(stop_event_only, linux_port::monotonic_clock::now() +
                                              std::chrono::milliseconds(milliseconds));
}

void kelo_hal_system_delay(uint32_t milliseconds) {
    if (milliseconds == 0) {
        sched_yield();
        return;
    }
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}
