/* Time of day and sleeping. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Time of day. May be called on any thread; does not block.
 *
 * @return seconds since 1970-01-01 UTC, modulo 2^32. May jump either way when the clock is set.
 */
uint32_t uni_time_get_posix(void);

/**
 * Sleeps. May be called on any thread. Returns at once, before its time, when the calling thread is
 * told to stop (DeleteThrdHandle) or already was. A caller that repeats it until a condition holds
 * would then take the whole processor: use kelo_hal_system_delay for that.
 *
 * @param milliseconds  how long, on a clock that never jumps; 0 lets other threads run
 */
void kelo_hal_system_sleep(uint32_t milliseconds);

/**
 * Sleeps as kelo_hal_system_sleep does, but a stop of the thread does not cut it short: for short
 * pauses between two looks at a condition. May be called on any thread. Threads of lower priority
 * run meanwhile.
 *
 * @param milliseconds  how long, on a clock that never jumps; 0 lets other threads run
 */
void kelo_hal_system_delay(uint32_t milliseconds);

#ifdef __cplusplus
}
#endif
