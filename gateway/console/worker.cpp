#include "console/worker.h"

#include <stdexcept>
#include <utility>

namespace console {

worker::worker() {
    const thrd_param_t param{.stack_size = 256 * 1024, .priority = 1, .name = "console lines"};
    const auto entry = [](void *self) { static_cast<worker *>(self)->serve(); };
    if (CreateAndStart(&thread_, nullptr, nullptr, entry, this, &param) != 0) {
        throw std::runtime_error("cannot start a thread of the console");
    }
}

worker::~worker() {
    {
        const std::lock_guard guard(mutex_);
        ends_ = true;
    }
    changed_.notify_one();
    DeleteThrdHandle(thread_);
}

void worker::add(std::function<void()> job) {
    {
        const std::lock_guard guard(mutex_);
        jobs_.push_back(std::move(job));
    }
    changed_.notify_one();
}

void worker::serve() {
    for (;;) {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [this] { return ends_ || !jobs_.empty(); });
        if (ends_) {
            return;
        }
        const std::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        guard.unlock();
        job();
    }
}

} // namespace console
