/*
 * A thread of the port on which callbacks run one after the other. The timers and the message bus
 * have one each.
 */
#pragma once

#include "platform/thread.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace linux_port {

/** The thread, the mutex that guards it together with its owner's state, and the callback that runs
 * just now. */
class callback_context {
  public:
    /**
     * @param name  name of the thread
     * @param loop  what it runs: until stopping(), waits on changed() and runs callbacks with
     *     run_callback
     */
    callback_context(const char *name, void (*loop)(std::unique_lock<std::mutex> &lock));

    [[nodiscard]] std::unique_lock<std::mutex> lock() { return std::unique_lock(mutex_); }

    /**
     * Starts the thread when it does not run.
     *
     * @return 0, or a negative code
     */
    int32_t start(std::unique_lock<std::mutex> &lock);
    /** Ends the thread; what its callback waits in ends at once. The lock is given up meanwhile. */
    void stop(std::unique_lock<std::mutex> &lock);

    [[nodiscard]] bool stopping() const { return stopping_; }
    std::condition_variable &changed() { return changed_; }

    /** Runs a callback of an id with the lock given up. On the context's thread only. */
    template <typename Callback>
    void run_callback(std::unique_lock<std::mutex> &lock, uint16_t id, Callback callback) {
        running_id_ = id;
        lock.unlock();
        callback();
        lock.lock();
        running_id_ = 0;
        ++runs_;
        ended_.notify_all();
    }

    /** Waits until no callback of the id runs that ran already when this was called; not on the
     * context's own thread. */
    void wait_for_callback(std::unique_lock<std::mutex> &lock, uint16_t id);

  private:
    static void thread_entry(void *argument);

    const char *name_;
    void (*loop_)(std::unique_lock<std::mutex> &);
    std::mutex mutex_;
    std::condition_variable changed_; /**< the owner's state changed, or the thread is to end */
    std::condition_variable ended_;   /**< a callback has ended */
    thrd_handle_t thread_ = nullptr;
    uint64_t thread_id_ = 0;
    bool stopping_ = false;
    uint16_t running_id_ = 0; /**< 0: none; ids are never 0 */
    uint64_t runs_ = 0;       /**< callbacks that have ended */
};

} // namespace linux_port
