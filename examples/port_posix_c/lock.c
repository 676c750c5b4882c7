/* Mutexes and the critical section, over POSIX mutexes that give the holder the waiter's priority.
 */
#include "platform/critical_section.h"
#include "platform/memory.h"
#include "platform/mutex.h"

#include <pthread.h>

struct kelo_mutex {
    pthread_mutex_t mutex;
};

static int init(pthread_mutex_t *mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    const int result = pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return result;
}

int32_t kelo_hal_mutex_create_init(kelo_mutex_t *mutex) {
    kelo_mutex_t made = Malloc(sizeof *made);
    if (made == NULL || init(&made->mutex) != 0) {
        Free(made);
        return -1;
    }
    *mutex = made;
    return 0;
}

int32_t kelo_hal_mutex_lock(kelo_mutex_t mutex) {
    return mutex == NULL || pthread_mutex_lock(&mutex->mutex) == 0 ? 0 : -1;
}

int32_t kelo_hal_mutex_unlock(kelo_mutex_t mutex) {
    return mutex == NULL || pthread_mutex_unlock(&mutex->mutex) == 0 ? 0 : -1;
}

int32_t kelo_hal_mutex_release(kelo_mutex_t mutex) {
    if (mutex != NULL) {
        pthread_mutex_destroy(&mutex->mutex);
        Free(mutex);
    }
    return 0;
}

static pthread_once_t critical_once = PTHREAD_ONCE_INIT;
static pthread_mutex_t critical;

static void init_critical(void) {
    (void)init(&critical);
}

void kelo_hal_critical_section_enter(void) {
    pthread_once(&critical_once, init_critical);
    pthread_mutex_lock(&critical);
}

void kelo_hal_critical_section_leave(void) {
    pthread_mutex_unlock(&critical);
}
