/* Mutexes over pthreads, of the kind that answers wrong use with an error. */
#include "platform/mutex.h"

#include <pthread.h>

#include <new>

struct kelo_mutex {
    pthread_mutex_t system;
};

int32_t kelo_hal_mutex_create_init(kelo_mutex_t *mutex) {
    auto *created = new (std::nothrow) kelo_mutex;
    if (created == nullptr) {
        return -1;
    }
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    const int error = pthread_mutex_init(&created->system, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error != 0) {
        delete created;
        return -error;
    }
    *mutex = created;
    return 0;
}

int32_t kelo_hal_mutex_lock(kelo_mutex_t mutex) {
    return mutex == nullptr ? 0 : -pthread_mutex_lock(&mutex->system);
}

int32_t kelo_hal_mutex_unlock(kelo_mutex_t mutex) {
    return mutex == nullptr ? 0 : -pthread_mutex_unlock(&mutex->system);
}

int32_t kelo_hal_mutex_release(kelo_mutex_t mutex) {
    if (mutex == nullptr) {
        return 0;
    }
    const int error = pthread_mutex_destroy(&mutex->system);
    if (error != 0) {
        return -error; // still held: a leak is safer than a destroyed mutex in use
    }
    delete mutex;
    return 0;
}
