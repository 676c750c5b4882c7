/* Fibers: made by ucontext, switched by the compiler's own jumps, announced to the address
 * sanitizer where there is one. */
#include "fiber.h"

#include "sanitizer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#ifdef SIM_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

namespace sim {

namespace {

fiber *leaving;  /**< the context that the running switch comes from */
fiber *arriving; /**< and the one that it goes to */

/** Unused stacks of the default size. */
std::vector<void *> &stack_pool() {
    static std::vector<void *> pool;
    return pool;
}

#ifdef SIM_ADDRESS_SANITIZER
/** More than the frames below that of end_with have. */
constexpr ptrdiff_t last_frames_bytes = 8 * 1024;
#endif

size_t guard_bytes() {
    static const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return page;
}

void *map_stack(size_t bytes) {
    void *mapping = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (mapping == MAP_FAILED || mprotect(mapping, guard_bytes(), PROT_NONE) != 0) {
        std::perror("sim: no memory for the stack of a simulated thread");
        std::abort();
    }
    return mapping;
}

} // namespace

fiber::fiber(entry begin, void *argument, size_t least_stack_bytes)
    : started_(false), begin_(begin), argument_(argument) {
    const size_t ordinary = stack_bytes + guard_bytes();
    mapping_bytes_ = ordinary;
    if (least_stack_bytes > stack_bytes / 2) {
        const size_t page = guard_bytes();
        mapping_bytes_ += (least_stack_bytes + page - 1) / page * page;
    }
    if (mapping_bytes_ == ordinary && !stack_pool().empty()) {
        mapping_ = stack_pool().back();
        stack_pool().pop_back();
    } else {
        mapping_ = map_stack(mapping_bytes_);
    }
    char *bottom = static_cast<char *>(mapping_) + guard_bytes();
    bottom_ = bottom;
    size_ = mapping_bytes_ - guard_bytes();
    getcontext(&context_);
    context_.uc_stack.ss_sp = bottom;
    context_.uc_stack.ss_size = size_;
    context_.uc_link = nullptr;
    makecontext(&context_, &fiber::trampoline, 0);
}

void fiber::release_stack() {
    if (mapping_ == nullptr) {
        return;
    }
#ifdef SIM_ADDRESS_SANITIZER
    // What the frames of its last functions leave poisoned: few, unless a story was abandoned.
    const auto *stack = static_cast<const char *>(bottom_);
    const auto *lowest =
        end_frame_ == nullptr ? stack : std::max(stack, end_frame_ - last_frames_bytes);
    __asan_unpoison_memory_region(lowest, static_cast<size_t>(stack + size_ - lowest));
#endif
    if (mapping_bytes_ == stack_bytes + guard_bytes()) {
        stack_pool().push_back(mapping_);
    } else {
        munmap(mapping_, mapping_bytes_);
    }
    mapping_ = nullptr;
}

void fiber::trampoline() {
    fiber *self = arriving;
    self->arrived(nullptr);
    self->begin_(self->argument_);
    std::abort(); // an entry ends with end_with
}

void fiber::arrived([[maybe_unused]] void *fake_stack) {
#ifdef SIM_ADDRESS_SANITIZER
    const void *bottom = nullptr;
    size_t size = 0;
    __sanitizer_finish_switch_fiber(fake_stack, &bottom, &size);
    if (leaving->mapping_ == nullptr) {
        leaving->bottom_ = bottom;
        leaving->size_ = size;
    }
#endif
    std::memcpy(static_cast<void *>(__cxxabiv1::__cxa_get_globals()), &exceptions_,
                sizeof exceptions_);
}

void fiber::leave_for(fiber &next, [[maybe_unused]] bool comes_back) {
    std::memcpy(&exceptions_, static_cast<void *>(__cxxabiv1::__cxa_get_globals()),
                sizeof exceptions_);
    leaving = this;
    arriving = &next;
#ifdef SIM_ADDRESS_SANITIZER
    __sanitizer_start_switch_fiber(comes_back ? &fake_stack_ : nullptr, next.bottom_, next.size_);
#endif
    jump(next);
    arrived(fake_stack_);
}

// The compiler saves all registers around its built-in jumps; the set and the jump have to be in
// different functions.
[[gnu::noinline, gnu::no_sanitize_address]] void fiber::jump(fiber &next) {
    if (__builtin_setjmp(resume_point_) == 0) {
        resume(next);
    }
}

[[gnu::noinline, gnu::no_sanitize_address]] void fiber::resume(fiber &next) {
    if (!next.started_) {
        next.started_ = true;
        setcontext(&next.context_);
    }
    __builtin_longjmp(next.resume_point_, 1);
}

void fiber::end_with(fiber &next) {
    end_frame_ = static_cast<const char *>(__builtin_frame_address(0));
    leave_for(next, false);
    std::abort();
}

} // namespace sim
