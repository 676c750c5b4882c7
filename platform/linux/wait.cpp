/* poll(2) with a deadline and the thread's stop event. */
#include "wait.h"

#include "thread_state.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace linux_port {

wait_end wait_for(std::span<pollfd> watched, monotonic_clock::time_point deadline) {
    return wait_for(watched, deadline, monotonic_clock::now());
}

wait_end wait_for(std::span<pollfd> watched, monotonic_clock::time_point deadline,
                  monotonic_clock::time_point now) {
    watched.back() = {stop_event(), POLLIN, 0};
    // The system counts entries without a descriptor, too, against the process's limit.
    const size_t count = watched.size() - (watched.back().fd < 0 ? 1 : 0);
    for (;;) {
        timespec left{};
        if (deadline != no_deadline) {
            using std::chrono::nanoseconds;
            const nanoseconds time = std::max<nanoseconds>(deadline - now, {});
            left = {static_cast<time_t>(time.count() / std::nano::den),
                    static_cast<long>(time.count() % std::nano::den)};
        }
        const int ready =
            ppoll(watched.data(), count, deadline != no_deadline ? &left : nullptr, nullptr);
        if (ready < 0 && errno != EINTR) {
            return wait_end::failed;
        }
        now = ready < 0 ? monotonic_clock::now() : now;
        if (ready == 0) {
            return wait_end::timed_out;
        }
        if (ready > 0) {
            return watched.back().revents != 0 ? wait_end::stopped : wait_end::ready;
        }
    }
}

} // namespace linux_port
