/*
 * Mutexes of a new port.
 * Needs: plain mutexes; a null handle does nothing.
 */
#include "platform/mutex.h"

int32_t kelo_hal_mutex_create_init(kelo_mutex_t *mutex) {
    (void)mutex;
    return -1;
}
int32_t kelo_hal_mutex_lock(kelo_mutex_t mutex) {
    (void)mutex;
    return -1;
}
int32_t kelo_hal_mutex_unlock(kelo_mutex_t mutex) {
    (void)mutex;
    return -1;
}
int32_t kelo_hal_mutex_release(kelo_mutex_t mutex) {
    (void)mutex;
    return -1;
}
