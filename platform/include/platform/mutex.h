/* Mutexes: not recursive, not shared between processes, unlocked by the thread that locked them. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A mutex; the port gives the record behind it its form. */
typedef struct kelo_mutex *kelo_mutex_t;

/**
 * Creates a mutex. May be called on any thread; does not block.
 *
 * @param[out] mutex  the new handle on success, else unchanged
 * @return 0; any other value when there is no memory
 */
int32_t kelo_hal_mutex_create_init(kelo_mutex_t *mutex);

/**
 * Waits until the mutex is free and takes it. A stop of the thread does not end the wait: no holder
 * keeps it long.
 *
 * @param mutex  a living mutex that the calling thread does not hold; null does nothing
 * @return 0. REQUIRED of a port: locking never fails, callers do not look at the result. A port may
 *     return a negative code to a caller that holds the mutex already
 */
int32_t kelo_hal_mutex_lock(kelo_mutex_t mutex);

/**
 * Gives the mutex back.
 *
 * @param mutex  a mutex that the calling thread holds; null does nothing
 * @return 0. REQUIRED of a port: unlocking never fails, callers do not look at the result. A port
 *     may return a negative code to a caller that does not hold the mutex
 */
int32_t kelo_hal_mutex_unlock(kelo_mutex_t mutex);

/**
 * Destroys a mutex. The caller makes sure that nobody holds it, waits for it or will use it again.
 *
 * @param mutex  a free mutex; null does nothing
 * @return 0; a port may return a negative code for a mutex that is held. Not used
 */
int32_t kelo_hal_mutex_release(kelo_mutex_t mutex);

#ifdef __cplusplus
}
#endif
