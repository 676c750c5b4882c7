/* Simulated threads, their waits, and virtual time. */
#pragma once

#include "chooser.h"
#include "fiber.h"

#include "platform/thread.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace sim {

struct core;
struct wait_state;

constexpr uint64_t never = std::numeric_limits<uint64_t>::max();

} // namespace sim

/** A simulated thread; also what a thrd_handle_t points to. Records stay until the world ends, so
 * that the use of stale handles is detected. */
struct kelo_thread {
    uint32_t number = 0;
    std::string name;
    std::unique_ptr<sim::fiber> context;
    std::function<void()> body;
    sim::wait_state *waiting = nullptr; /**< null: could run */
    uint64_t checked_change = 0; /**< last change of the world for which its wait was not ready */
    bool told_to_stop = false;
    bool ended = false;
    bool has_handle =
        false; /**< created by CreateAndStart, and DeleteThrdHandle was not called yet */
    bool deletes_itself = false; /**< the handle is released at the end of the thread */
    bool released = false;       /**< the handle must not be used any more */
    bool is_service = false;     /**< a context of the port itself */
    int32_t error_code = 0;
    int file_error = 0; /**< errno of the last failed call of a file */
    int saved_errno = 0;
};

namespace sim {

using thread = kelo_thread;

/** How a wait ended. */
enum class wake { ready, stopped, timed_out };

/** One wait, on the stack of the waiting thread. */
struct wait_state {
    const char *what;                   /**< for people, "waits for ..." */
    int64_t detail = 0;                 /**< a descriptor, an id; told with what */
    const uint64_t *deadline = nullptr; /**< null: none */
    bool stoppable = false;             /**< ends when the thread is told to stop */
    bool after_all_others = false;      /**< runs only when no other thread can */
    bool always_ask =
        false;            /**< the condition may depend on anything, not only on the port's state */
    bool bounded = false; /**< lasting too long is a hang */
    uint64_t since_ms = 0;
    bool (*ready)(const void *) = nullptr;
    const void *condition = nullptr;
    const std::function<thread *()> *blocker =
        nullptr; /**< the thread that has to act first, to find circles */
};

class scheduler {
  public:
    explicit scheduler(core &owner, std::unique_ptr<chooser> decides);

    [[nodiscard]] thread &self() const { return *current_; }
    [[nodiscard]] thread &main() const { return *threads_.front(); }
    [[nodiscard]] uint64_t now_ms() const { return now_ms_; }
    [[nodiscard]] uint64_t steps() const { return steps_; }
    [[nodiscard]] const std::string &decisions() const { return decisions_; }
    [[nodiscard]] const std::vector<std::unique_ptr<thread>> &threads() const { return threads_; }
    [[nodiscard]] chooser &decides() const { return *chooser_; }

    /** A point at which another thread may run. yields: the running thread prefers that. */
    void point(bool yields = false);
    /** Waits until condition() holds, the deadline, or a stop. wait.what and the like are set by
     * the caller. */
    template <typename Condition>
    wake wait(wait_state wait, const Condition &condition) {
        wait.ready = [](const void *object) { return (*static_cast<const Condition *>(object))(); };
        wait.condition = &condition;
        return block(wait);
    }
    /** Notes a change that a wait may depend on. */
    void changed() { ++changes_; }
    /** A test's own call: resets the livelock counter. */
    void test_acts() {
        changed();
        steps_at_progress_ = steps_;
    }

    /** Adds a thread that can run from now on. */
    thread &start(std::string name, std::function<void()> body, size_t stack_bytes = 0);
    /** Runs an action at a time, in order of time and then of calls; not on a thread, so that it
     * must not block. */
    void at(uint64_t time_ms, std::function<void()> action);
    [[nodiscard]] std::string describe() const;
    thread *critical_section_holder = nullptr; /**< in the critical section; must not wait */
    /** Abandons all threads and switches to a context outside. */
    [[noreturn]] void abandon(fiber &outside);

  private:
    wake block(wait_state &wait);
    [[nodiscard]] bool can_run(thread &candidate);
    void collect(bool yields);
    /** Switches to one of the candidates; returns when the caller runs again. */
    void decide(bool preempted);
    void go_on_with(thread &next);
    void advance();
    void run_due_actions();
    void count_step();
    void look_for_circle(const wait_state &wait);
    void look_for_hang();
    void run_body(thread &started);
    [[noreturn]] void end_current();

    core &owner_;
    std::unique_ptr<chooser> chooser_;
    std::vector<std::unique_ptr<thread>> threads_;
    std::vector<thread *> live_; /**< not ended, by number */
    std::vector<thread *> candidates_;
    std::multimap<uint64_t, std::function<void()>> actions_;
    thread *current_ = nullptr;
    thread *dead_ = nullptr; /**< ended; its stack can go once another one runs */
    uint64_t now_ms_ = 0;
    uint64_t steps_ = 0;
    uint64_t steps_at_progress_ = 0;
    uint64_t changes_ = 1;
    std::string decisions_;
};

} // namespace sim
