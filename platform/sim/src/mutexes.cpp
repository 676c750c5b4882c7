/* Mutexes; misuse is a problem of the world. */
#include "core.h"

int32_t kelo_hal_mutex_create_init(kelo_mutex_t *mutex) {
    sim::call call(sim::operation::kelo_hal_mutex_create_init);
    if (call.fails()) {
        return call.failed();
    }
    auto &mutexes = sim::current_core().mutexes;
    mutexes.push_back({.number = static_cast<uint32_t>(mutexes.size() + 1)});
    *mutex = &mutexes.back();
    return call.done(0);
}

namespace {

int64_t number_of(kelo_mutex_t mutex) {
    return mutex == nullptr ? 0 : mutex->number;
}

} // namespace

int32_t kelo_hal_mutex_lock(kelo_mutex_t mutex) {
    sim::call call(sim::operation::kelo_hal_mutex_lock, {number_of(mutex)});
    if (mutex == nullptr) {
        return call.done(0);
    }
    sim::core &core = sim::current_core();
    const std::function<sim::thread *()> holder = [mutex] { return mutex->holder; };
    core.threads.wait(
        {.what = "mutex", .detail = mutex->number, .bounded = true, .blocker = &holder},
        [mutex] { return mutex->holder == nullptr; });
    if (mutex->released) {
        core.problem("lock of mutex " + std::to_string(mutex->number) + ", which was released");
        return call.done(-1);
    }
    mutex->holder = &core.threads.self();
    return call.done(0);
}

int32_t kelo_hal_mutex_unlock(kelo_mutex_t mutex) {
    sim::call call(sim::operation::kelo_hal_mutex_unlock, {number_of(mutex)});
    if (mutex == nullptr) {
        return call.done(0);
    }
    sim::core &core = sim::current_core();
    if (mutex->released || mutex->holder != &core.threads.self()) {
        core.problem("unlock of mutex " + std::to_string(mutex->number) +
                     (mutex->released            ? ", which was released"
                      : mutex->holder == nullptr ? ", which nobody holds"
                                                 : ", which " + mutex->holder->name + " holds"));
        return call.done(-1);
    }
    mutex->holder = nullptr;
    return call.done(0);
}

int32_t kelo_hal_mutex_release(kelo_mutex_t mutex) {
    sim::call call(sim::operation::kelo_hal_mutex_release, {number_of(mutex)});
    if (call.fails()) {
        return call.failed();
    }
    if (mutex == nullptr) {
        return call.done(0);
    }
    sim::core &core = sim::current_core();
    if (mutex->released || mutex->holder != nullptr) {
        core.problem("release of mutex " + std::to_string(mutex->number) +
                     (mutex->released ? ", which was released before"
                                      : ", which " + mutex->holder->name + " holds"));
        mutex->released = true;
        return call.done(-1);
    }
    mutex->released = true;
    return call.done(0);
}
