/*
 * Timers. All callbacks run one after the other on one context of the port, so a callback has to be
 * short; it may sleep or send for some milliseconds. An expiry that comes due while the context is
 * busy is delivered late, once: a periodic timer then goes on at the next whole multiple of its
 * period after the start, so that one long callback is not followed by a burst of the expiries that
 * it made others miss. Ids are 16
 * bits wide; 0 is never one.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Called when a timer expires. May start, stop and delete any timer, its own included. */
typedef void (*sys_timer_callback_t)(uint16_t timer_id, void *argument);

/** Kinds of run for sys_start_timer. */
enum { SYS_TIMER_ONE_SHOT = 0, SYS_TIMER_PERIODIC = 1 };

/**
 * Creates a timer that does not run yet. May be called on any thread; does not block.
 *
 * @param callback       called at expiry; required
 * @param argument       handed to the callback
 * @param[out] timer_id  the new id on success, else unchanged. An id is reused as late as possible
 * @return 0; any other value when callback is null, or there is no memory or no free id
 */
int32_t sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer_id);

/**
 * Starts a timer, anew when it runs. The first expiry is milliseconds from now. May be called on
 * any thread; does not block.
 *
 * @param timer_id      a living timer
 * @param milliseconds  time to expiry and, when periodic, between expiries; at least 1
 * @param type          SYS_TIMER_ONE_SHOT or SYS_TIMER_PERIODIC
 * @return 0; else the id is unknown, milliseconds is 0, type is neither, or there is no memory
 */
int32_t sys_start_timer(uint16_t timer_id, uint32_t milliseconds, int32_t type);

/**
 * Stops a timer that may run. An expiry that is already being delivered is not waited for. Any
 * thread; does not block.
 *
 * @return 0; else the id is unknown
 */
int32_t sys_stop_timer(uint16_t timer_id);

/**
 * Deletes a timer. Returns only when its callback no longer runs, unless called from that callback.
 * Any other thread.
 *
 * @return 0; else the id is unknown
 */
int32_t sys_delete_timer(uint16_t timer_id);

/**
 * Whether a timer runs. Any thread; does not block. A one-shot timer counts as stopped from the
 * moment its callback is entered.
 *
 * @return 1 while an expiry is due, else 0 (also for an unknown id)
 */
int32_t IsThisSysTimerRun(uint16_t timer_id);

#ifdef __cplusplus
}
#endif
