/*
 * Clock of a new port.
 * Needs: a real-time clock, and a sleep that DeleteThrdHandle ends at once (an event that belongs
 * to the thread will do), and a delay that it does not end.
 */
#include "platform/clock.h"

uint32_t uni_time_get_posix(void) {
    return 0;
}
void kelo_hal_system_sleep(uint32_t milliseconds) {
    (void)milliseconds;
}
void kelo_hal_system_delay(uint32_t milliseconds) {
    (void)milliseconds;
}
