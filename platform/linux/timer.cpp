/* Timers: one thread that sleeps until the earliest expiry. */
#include "platform/timer.h"

#include "background.h"
#include "callback_context.h"
#include "wait.h"

#include <cerrno>
#include <map>
#include <new>
#include <set>
#include <utility>

namespace linux_port {

namespace {

struct timer {
    sys_timer_callback_t callback;
    void *argument;
    std::chrono::milliseconds period{0}; /**< 0: one-shot */
    monotonic_clock::time_point due = no_deadline;
    bool running = false;
};

void run_timers(std::unique_lock<std::mutex> &lock);

struct timer_service {
    callback_context context{"sys_timer", run_timers};
    std::map<uint16_t, timer> timers;
    std::set<std::pair<monotonic_clock::time_point, uint16_t>>
        expiries; /**< of the running timers */
    uint16_t last_id = 0;
};

/** Never destroyed: its thread may outlive main. */
timer_service &service() {
    static auto &instance = *new timer_service;
    return instance;
}

void cancel(timer_service &timers, uint16_t id, timer &cancelled) {
    if (cancelled.running) {
        timers.expiries.erase({cancelled.due, id});
        cancelled.running = false;
    }
}

void schedule(timer_service &timers, uint16_t id, timer &scheduled,
              monotonic_clock::time_point due) {
    cancel(timers, id, scheduled);
    timers.expiries.emplace(due, id);
    scheduled.due = due;
    scheduled.running = true;
}

/** Next expiry of a periodic timer on its grid; missed expiries are skipped. */
monotonic_clock::time_point next_due(const timer &expired, monotonic_clock::time_point now) {
    const auto late = now - expired.due;
    return expired.due + (late / expired.period + 1) * expired.period;
}

void expire(timer_service &timers, std::unique_lock<std::mutex> &lock, uint16_t id) {
    timer &expired = timers.timers.at(id);
    if (expired.period.count() != 0) {
        schedule(timers, id, expired, next_due(expired, monotonic_clock::now()));
    } else {
        cancel(timers, id, expired);
    }
    timers.context.run_callback(
        lock, id,
        [callback = expired.callback, argument = expired.argument, id] { callback(id, argument); });
}

void run_timers(std::unique_lock<std::mutex> &lock) {
    timer_service &timers = service();
    while (!timers.context.stopping()) {
        if (timers.expiries.empty()) {
            timers.context.changed().wait(lock);
            continue;
        }
        const auto [due, id] = *timers.expiries.begin();
        if (due > monotonic_clock::now()) {
            timers.context.changed().wait_until(lock, due);
        } else {
            expire(timers, lock, id);
        }
    }
}

/** Next free id, counting up so that a freed id is reused as late as possible; 0 when none is free.
 * */
uint16_t free_id(timer_service &timers) {
    for (uint32_t tries = 0; tries < UINT16_MAX; ++tries) {
        timers.last_id = static_cast<uint16_t>(timers.last_id % UINT16_MAX + 1);
        if (!timers.timers.contains(timers.last_id)) {
            return timers.last_id;
        }
    }
    return 0;
}

} // namespace

void shut_timers_down() {
    timer_service &timers = service();
    auto lock = timers.context.lock();
    timers.context.stop(lock);
    timers.expiries.clear();
    timers.timers.clear();
}

} // namespace linux_port

using namespace linux_port;

int32_t sys_add_timer(sys_timer_callback_t callback, void *argument, uint16_t *timer_id) {
    if (callback == nullptr || timer_id == nullptr) {
        return -EINVAL;
    }
    timer_service &timers = service();
    auto lock = timers.context.lock();
    const int32_t started = timers.context.start(lock);
    if (started != 0) {
        return started;
    }
    const uint16_t id = free_id(timers);
    if (id == 0) {
        return -ENOSPC;
    }
    try {
        timers.timers.emplace(id, timer{callback, argument});
    } catch (const std::bad_alloc &) {
        return -ENOMEM;
    }
    *timer_id = id;
    return 0;
}

int32_t sys_start_timer(uint16_t timer_id, uint32_t milliseconds, int32_t type) {
    if (milliseconds == 0 || (type != SYS_TIMER_ONE_SHOT && type != SYS_TIMER_PERIODIC)) {
        return -EINVAL;
    }
    timer_service &timers = service();
    auto lock = timers.context.lock();
    const auto found = timers.timers.find(timer_id);
    if (found == timers.timers.end()) {
        return -ENOENT;
    }
    const std::chrono::milliseconds time(milliseconds);
    found->second.period = type == SYS_TIMER_PERIODIC ? time : std::chrono::milliseconds(0);
    try {
        schedule(timers, timer_id, found->second, monotonic_clock::now() + time);
    } catch (const std::bad_alloc &) {
        return -ENOMEM;
    }
    if (timers.expiries.begin()->second == timer_id) { // else its thread need not wake up earlier
        timers.context.changed().notify_all();
    }
    return 0;
}

int32_t sys_stop_timer(uint16_t timer_id) {
    timer_service &timers = service();
    auto lock = timers.context.lock();
    const auto found = timers.timers.find(timer_id);
    if (found == timers.timers.end()) {
        return -ENOENT;
    }
    cancel(timers, timer_id, found->second);
    return 0;
}

int32_t sys_delete_timer(uint16_t timer_id) {
    timer_service &timers = service();
    auto lock = timers.context.lock();
    const auto found = timers.timers.find(timer_id);
    const bool known = found != timers.timers.end();
    if (known) {
        cancel(timers, timer_id, found->second);
        timers.timers.erase(found);
    }
    // Also when the callback deleted its timer itself meanwhile: it may still run.
    timers.context.wait_for_callback(lock, timer_id);
    return known ? 0 : -ENOENT;
}

int32_t IsThisSysTimerRun(uint16_t timer_id) {
    timer_service &timers = service();
    auto lock = timers.context.lock();
    const auto found = timers.timers.find(timer_id);
    return found != timers.timers.end() && found->second.running ? 1 : 0;
}
