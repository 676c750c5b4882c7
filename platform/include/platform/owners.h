/* Small owners over the contracts, for C++: what must be released on every path is held by one of
 * these. */
#pragma once

#include "platform/critical_section.h"
#include "platform/memory.h"
#include "platform/mutex.h"

#include <cstdint>
#include <cstdlib>
#include <utility>

namespace platform {

/** Owns one block of Malloc. */
template <typename Type>
class heap_block {
  public:
    heap_block() = default;
    /** Takes over a block, or null. */
    explicit heap_block(Type *block) : block_(block) {}
    heap_block(heap_block &&other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    heap_block &operator=(heap_block &&other) noexcept {
        reset(std::exchange(other.block_, nullptr));
        return *this;
    }
    heap_block(const heap_block &) = delete;
    heap_block &operator=(const heap_block &) = delete;
    ~heap_block() { Free(block_); }

    /** Allocates size bytes; empty when there is no memory. */
    [[nodiscard]] static heap_block allocate(std::size_t size) {
        return heap_block(static_cast<Type *>(Malloc(size)));
    }

    [[nodiscard]] Type *get() const { return block_; }
    Type *operator->() const { return block_; }
    explicit operator bool() const { return block_ != nullptr; }
    /** Releases the block held and takes over another. */
    void reset(Type *block = nullptr) { Free(std::exchange(block_, block)); }
    /** Hands the block to the caller. */
    [[nodiscard]] Type *release() { return std::exchange(block_, nullptr); }
    /** Place for a contract that stores a new block through a pointer; must be empty. */
    [[nodiscard]] Type **out() { return &block_; }

  private:
    Type *block_ = nullptr;
};

/** Owns one block of the C library's malloc that a contract hands over. */
template <typename Type>
class c_library_block {
  public:
    c_library_block() = default;
    c_library_block(const c_library_block &) = delete;
    c_library_block &operator=(const c_library_block &) = delete;
    ~c_library_block() { std::free(block_); }

    [[nodiscard]] Type *get() const { return block_; }
    explicit operator bool() const { return block_ != nullptr; }
    /** Place for the block; must be empty. */
    [[nodiscard]] Type **out() { return &block_; }

  private:
    Type *block_ = nullptr;
};

/** Holds a mutex for the life of a scope. A null mutex is allowed and guards nothing. */
class held_mutex {
  public:
    explicit held_mutex(kelo_mutex_t mutex) : mutex_(mutex) { kelo_hal_mutex_lock(mutex_); }
    held_mutex(const held_mutex &) = delete;
    held_mutex &operator=(const held_mutex &) = delete;
    ~held_mutex() { kelo_hal_mutex_unlock(mutex_); }

  private:
    kelo_mutex_t mutex_;
};

/** Stays in the critical section for the life of a scope. */
class held_critical_section {
  public:
    held_critical_section() { kelo_hal_critical_section_enter(); }
    held_critical_section(const held_critical_section &) = delete;
    held_critical_section &operator=(const held_critical_section &) = delete;
    ~held_critical_section() { kelo_hal_critical_section_leave(); }
};

} // namespace platform
