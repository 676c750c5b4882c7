/* Contexts of execution with a stack of their own, all on the one thread of the system that runs
 * the test. */
#pragma once

#include <cstddef>
#include <ucontext.h>
#include <unwind.h>

namespace sim {

/** What the C++ runtime keeps of exceptions under way for each thread of the system (its
 * __cxa_eh_globals, of which it tells the address only). */
struct exception_state {
    void *caught = nullptr;
    unsigned int uncaught = 0;
#ifdef __ARM_EABI_UNWINDER__
    void *propagating = nullptr;
#endif
};

/** One context. Its stack comes from a pool that outlives worlds, since mapping memory costs more
 * than a short story. */
class fiber {
  public:
    using entry = void (*)(void *argument);

    /** Stack of every fiber, unless more is asked for; untouched pages cost nothing. */
    static constexpr size_t stack_bytes = 1024 * 1024;

    /** The context of the code that makes it, on the stack that this code has. */
    fiber() = default;
    /** A new one that begins with entry(argument) at the first switch to it. The entry must not
     * return. */
    fiber(entry begin, void *argument, size_t least_stack_bytes = 0);
    ~fiber() { release_stack(); }
    fiber(const fiber &) = delete;
    fiber &operator=(const fiber &) = delete;

    /** Switches to another context; returns when another one switches back. */
    void switch_to(fiber &next) { leave_for(next, true); }
    /** Switches to another context for good. */
    [[noreturn]] void end_with(fiber &next);
    /** Gives the stack back to the pool; the fiber must not be running. */
    void release_stack();

  private:
    static void trampoline();
    void leave_for(fiber &next, bool comes_back);
    void jump(fiber &next);
    [[noreturn]] static void resume(fiber &next);
    void arrived(void *fake_stack);

    ucontext_t context_ = {}; /**< for the first switch to it */
    bool started_ = true;
    void *resume_point_[5] = {}; /**< for later ones, which need no system call */
    void *mapping_ = nullptr;    /**< guard page and stack; null on the system's own stack */
    size_t mapping_bytes_ = 0;
    entry begin_ = nullptr;
    void *argument_ = nullptr;
    exception_state exceptions_; /**< of this context */
    void *fake_stack_ = nullptr; /**< of the address sanitizer, as are the next three */
    const void *bottom_ = nullptr;
    size_t size_ = 0;
    const char *end_frame_ = nullptr; /**< where it ended; null: not at all */
};

} // namespace sim
