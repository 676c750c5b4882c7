/* A lock for some instructions at a time, that exists before anything was created. */
#pragma once

#include "platform/clock.h"

#include <atomic>

/** Holds a flag for the life of a scope. What it guards must be short and call nothing
 * that blocks. */
class short_lock {
  public:
    explicit short_lock(std::atomic_flag &flag) : flag_(flag) {
        while (flag_.test_and_set(std::memory_order_acquire)) {
            kelo_hal_system_sleep(1);
        }
    }
    short_lock(const short_lock &) = delete;
    short_lock &operator=(const short_lock &) = delete;
    ~short_lock() { flag_.clear(std::memory_order_release); }

  private:
    std::atomic_flag &flag_;
};
