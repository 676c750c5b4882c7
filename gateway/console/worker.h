// A thread that does one job after the other, for those that may take a minute.
#pragma once

#include "platform/thread.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace console {

/** The thread and its queue, which the callers bound. */
class worker {
  public:
    /** @throws std::runtime_error  the thread does not start */
    worker();
    /** A job that is under way is finished, its waits cut short; those behind it are dropped. */
    ~worker();
    worker(const worker &) = delete;
    worker &operator=(const worker &) = delete;

    /** Queues a job. Any thread. */
    void add(std::function<void()> job);

  private:
    void serve();

    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    bool ends_ = false;
    thrd_handle_t thread_ = nullptr;
};

} // namespace console
