/* Mutexes: not recursive, not shared between processes, released only by the thread that holds
 * them. */
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
 * @return 0, or a negative code
 */
int32_t kelo_hal_mutex_create_init(kelo_mutex_t *mutex);

/**
 * Waits until the mutex is free and takes it. Not ended by a stop of the thread: holders hold it
 * for a short time.
 *
 * @param mutex  a living mutex that the calling thread does not hold; null does nothing
 * @return 0. REQUIRED of a port: the lock of a living mutex never fails. A negative code tells
 *     wrong use and nothing else (the caller holds the mutex already)
 */
int32_t kelo_hal_mutex_lock(kelo_mutex_t mutex);

/**
 * Gives the mutex back.
 *
 * @param mutex  a mutex that the calling thread holds; null does nothing
 * @return 0. REQUIRED of a port: the unlock of a mutex that the caller holds never fails. A
 *     negative code tells wrong use and nothing else
 */
int32_t kelo_hal_mutex_unlock(kelo_mutex_t mutex);

/**
 * Destroys a mutex. The caller makes sure that nobody holds it, waits for it or will use it again.
 *
 * @param mutex  a free mutex; null does nothing
 * @return 0, or a negative code
 */
int32_t kelo_hal_mutex_release(kelo_mutex_t mutex);

#ifdef __cplusplus
}
#endif
