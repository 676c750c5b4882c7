/* The critical section: one pthread mutex that lends its holder the waiter's priority. */
#include "platform/critical_section.h"

#include <pthread.h>

#include <cstdlib>

namespace {

/** Created at its first use and never destroyed. */
struct process_lock {
    process_lock() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        if (pthread_mutex_init(&system, &attributes) != 0) { // a kernel without inheritance
            pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_NONE);
            pthread_mutex_init(&system, &attributes);
        }
        pthread_mutexattr_destroy(&attributes);
    }
    pthread_mutex_t system;
};

pthread_mutex_t *system_mutex() {
    static process_lock lock;
    return &lock.system;
}

/** There is no error to return for wrong use, and to go on would be worse. */
void require_success(int error) {
    if (error != 0) {
        std::abort();
    }
}

} // namespace

void kelo_hal_critical_section_enter() {
    require_success(pthread_mutex_lock(system_mutex()));
}

void kelo_hal_critical_section_leave() {
    require_success(pthread_mutex_unlock(system_mutex()));
}
