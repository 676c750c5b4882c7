/*
 * Timers of a new port.
 * Needs: one context that runs all callbacks, ids of 16 bits that come back late, and a deletion
 * that waits for a callback that runs, unless that callback calls it.
 */
#include "platform/timer.h"

int32_t sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer_id) {
    (void)callback;
    (void)argument;
    (void)timer_id;
    return -1;
}
int32_t sys_start_timer(uint16_t timer_id, uint32_t milliseconds, int32_t type) {
    (void)timer_id;
    (void)milliseconds;
    (void)type;
    return -1;
}
int32_t sys_stop_timer(uint16_t timer_id) {
    (void)timer_id;
    return -1;
}
int32_t sys_delete_timer(uint16_t timer_id) {
    (void)timer_id;
    return -1;
}
int32_t IsThisSysTimerRun(uint16_t timer_id) {
    (void)timer_id;
    return 0;
}
