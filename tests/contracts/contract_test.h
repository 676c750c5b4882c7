// What the contract tests share: the fixture, threads of the port that run a lambda, descriptors
// that close themselves.
#pragma once

#include "port_harness.h"

#include "platform/clock.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <utility>

namespace contract_tests {

constexpr uint32_t an_hour_ms = 3'600'000;

class contract_test : public testing::Test {
  protected:
    std::unique_ptr<port_harness> port = make_port_harness();

    /** Lets time pass until the condition holds; false when it does not within the bound. */
    template <typename Condition>
    bool wait_until(Condition condition) {
        const uint64_t end = port->now_ms() + expectation_bound_ms;
        while (!condition()) {
            if (port->now_ms() > end) {
                return false;
            }
            kelo_hal_system_sleep(1);
        }
        return true;
    }
};

/** A thread of the port that runs a function; stopped and waited for at the end of the scope at the
 * latest. */
class port_thread {
  public:
    explicit port_thread(std::function<void()> body) : body_(std::move(body)) {
        const thrd_param_t param{0x800, 3, "contract_test"};
        EXPECT_EQ(CreateAndStart(&handle, nullptr, nullptr, run, this, &param), 0);
    }
    ~port_thread() { stop(); }
    port_thread(const port_thread &) = delete;
    port_thread &operator=(const port_thread &) = delete;

    void stop() { EXPECT_EQ(DeleteThrdHandle(std::exchange(handle, nullptr)), 0); }

    thrd_handle_t handle = nullptr;
    std::atomic<bool> ended{false};

  private:
    static void run(void *argument) {
        auto *self = static_cast<port_thread *>(argument);
        self->body_();
        self->ended = true;
    }
    std::function<void()> body_;
};

/** A descriptor that is closed at the end of the scope. */
class descriptor {
  public:
    explicit descriptor(int32_t number) : number_(number) { EXPECT_GT(number, 0); }
    descriptor(descriptor &&other) noexcept : number_(std::exchange(other.number_, 0)) {}
    ~descriptor() { close(); }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    descriptor &operator=(descriptor &&) = delete;

    operator int32_t() const { return number_; }
    void close() {
        if (number_ > 0) {
            kelo_hal_net_close(std::exchange(number_, 0));
        }
    }

  private:
    int32_t number_;
};

} // namespace contract_tests
