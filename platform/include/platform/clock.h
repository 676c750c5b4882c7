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
 * told to stop (DeleteThrdHandle) or already was; a caller that waits for a condition has to test
 * for that itself.
 *
 * @param milliseconds  how long, on a clock that never jumps; 0 lets other threads run
 */
void kelo_hal_system_sleep(uint32_t milliseconds);

#ifdef __cplusplus
}
#endif
