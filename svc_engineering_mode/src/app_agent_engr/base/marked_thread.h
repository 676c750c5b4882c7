/* A thread that others can tell from themselves. */
#pragma once

#include "platform/owners.h"
#include "platform/thread.h"

#include <cstdint>

/** Remembers a thread; when value-initialised, none. Any thread. */
class marked_thread {
  public:
    void mark_caller() { set(GetThrdSelfId()); }
    /** Before the thread ends: the system may reuse its id soon. */
    void clear() { set(0); }
    [[nodiscard]] bool is_caller() const {
        const uint64_t self = GetThrdSelfId();
        const platform::held_critical_section hold;
        return id_ == self;
    }

  private:
    void set(uint64_t id) {
        const platform::held_critical_section hold;
        id_ = id;
    }

    uint64_t id_; /**< guarded by the critical section, since boards lack atomics of 64 bits */
};
