/*
 * Who uses the agent at the moment, and whether it is started.
 *
 * Every thread that works with the controller record does so inside an agent_use: the server task
 * for its whole life, timer and bus callbacks and exported functions for one call. A stop lets no
 * new one in and waits for those of other threads; those of its own thread (a stop from inside a
 * callback) finish the stop when the last of them ends.
 */
#pragma once

#include <cstdint>

/** Life of the agent. */
enum class agent_state : uint8_t {
    stopped,  /**< no record */
    starting, /**< init is under way; only the worker thread is let in */
    started,  /**< everybody is let in */
    stopping  /**< exit is under way; nobody new is let in */
};

/** What a start or stop finds. */
enum class transition : uint8_t {
    claimed,     /**< the caller carries it out */
    needless,    /**< the agent is in the wanted state */
    from_within, /**< another one is under way and the caller is inside the agent: it must not wait
                    for it */
};

/** Claims the start; waits for a start or stop of another thread unless called from inside the
 * agent. Any thread. */
[[nodiscard]] transition agent_begin_start();
/** Ends a claimed start. */
void agent_end_start(bool succeeded);
/** Claims the stop; waits like agent_begin_start. Any thread. */
[[nodiscard]] transition agent_begin_stop();
/**
 * Ends a claimed stop: waits until no other thread uses the agent, then calls release and lets the
 * state be stopped. When the calling thread itself is inside the agent, both happen later, when its
 * outermost use ends.
 *
 * @param release  frees the record; called once, on the calling thread
 */
void agent_end_stop(void (*release)());

/** State at this moment. Any thread. */
[[nodiscard]] agent_state agent_current_state();

/** One use of the agent by the calling thread, for the life of a scope. */
class agent_use {
  public:
    /** Whose use it is. */
    enum class user : uint8_t {
        visitor, /**< callback or exported function: let in while the agent is started */
        worker   /**< the worker thread: let in while it is starting, too */
    };

    explicit agent_use(user who = user::visitor);
    agent_use(const agent_use &) = delete;
    agent_use &operator=(const agent_use &) = delete;
    ~agent_use();

    /** Whether the agent may be used; when not, it counts as not started. */
    explicit operator bool() const { return entered_; }

  private:
    friend struct use_list;
    uint64_t thread_id_;
    agent_use *next_ = nullptr;
    bool entered_ = false;
};
