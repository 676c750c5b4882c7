/*
 * Life of a service that may be started and stopped by any thread at any time, also from inside
 * one of its own callbacks.
 *
 * Every thread that works with what a start has made does so inside a service_use. A stop lets no
 * visitor in any more and waits for the uses of other threads. The agent and the access-point
 * listener have one life each.
 */
#pragma once

#include "platform/thread.h"

#include <atomic>
#include <cstdint>

/** State of a service. */
enum class life_state : uint8_t {
    stopped,
    starting, /**< a start is under way; only the service's own thread may enter */
    started,
    stopping /**< a stop is under way; only the service's own thread may enter */
};

/** Answer to a thread that wants to start or stop the service. */
enum class transition : uint8_t {
    claimed,    /**< the caller carries it out */
    needless,   /**< the service is in the wanted state */
    from_within /**< a stop is under way that may wait for the caller, which must not wait for it */
};

class service_use;

/** Constant-initialised, so that it can be used at any time. Every function: any thread. */
class service_life {
  public:
    /** Claims the start. Waits for a start or stop of another thread, unless that is a stop and the
     * caller is inside the service. */
    [[nodiscard]] transition begin_start() {
        return begin(life_state::stopped, life_state::starting);
    }
    /** Ends a claimed start. */
    void end_start(bool succeeded);
    /** For the service's own thread: waits until the start that has made it is over, or until it is
     * told to stop. */
    void wait_for_start(thrd_handle_t thread) const;
    /** Claims the stop; waits as begin_start does. */
    [[nodiscard]] transition begin_stop() {
        return begin(life_state::started, life_state::stopping);
    }
    /** Ends a claimed stop once no other thread uses the service. Uses of the calling thread may go
     * on. */
    void end_stop();
    /**
     * Ends a claimed stop as well; when the calling thread is itself inside the service, only when
     * its outermost use ends.
     *
     * @param release  called once at the end of the stop, on the calling thread
     */
    void end_stop(void (*release)());

    /** State at this moment. Does not block. */
    [[nodiscard]] life_state state() const { return state_; }

  private:
    friend class service_use;
    [[nodiscard]] transition begin(life_state from, life_state to);
    void wait_for_others() const;
    [[nodiscard]] bool is_used(bool by_caller) const;

    std::atomic<life_state> state_{life_state::stopped}; // changed in the critical section
    service_use *uses_ = nullptr;                        // in the critical section
    void (*release_)() = nullptr; // guarded by the critical section; what the last use has to call
};

/** One use of a service by the calling thread, for the life of a scope. */
class service_use {
  public:
    /** Kind of user. */
    enum class user : uint8_t {
        visitor, /**< callback or exported function: may enter while the service is started */
        worker /**< the service's own thread, which a stop waits for: may enter unless it is stopped
                */
    };

    explicit service_use(service_life &life, user who = user::visitor);
    service_use(const service_use &) = delete;
    service_use &operator=(const service_use &) = delete;
    ~service_use();

    /** Whether the service may be used; when not, it counts as not started. */
    explicit operator bool() const { return entered_; }

  private:
    friend class service_life;
    service_life &life_;
    uint64_t thread_id_;
    service_use *next_ = nullptr;
    bool entered_ = false;
};
