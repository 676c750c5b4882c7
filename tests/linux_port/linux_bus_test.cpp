// Message bus and timers of the Linux port: the reasons of refusals, numbers that run out, and
// blocks that are released whatever becomes of a message.
#include "linux_port/port.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/message_bus.h"
#include "platform/timer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

std::atomic<int> blocks = 0; // allocated and not released

} // namespace

// In the place of the port's.
void *Malloc(size_t size) {
    ++blocks;
    return std::malloc(size);
}

void Free(void *block) {
    blocks -= block != nullptr ? 1 : 0;
    std::free(block);
}

namespace {

/** A receiver that keeps the bus busy with one message until it is told otherwise. */
struct busy_receiver {
    uint16_t id = CMMOD_NO_MESSAGE_ID;
    std::atomic<bool> entered = false;
    std::atomic<bool> unregisters = false;
    std::atomic<bool> left = false;
};

busy_receiver *receiver = nullptr;

void keep_busy(cmmod_msg_t *message) {
    receiver->entered = true;
    for (int waits = 0; waits < 20'000 && !receiver->unregisters; ++waits) {
        kelo_hal_system_sleep(1);
    }
    if (receiver->unregisters) {
        cmmod_unreg_msgcb(receiver->id);
    }
    put_rfc_data(message->rfc);
    receiver->left = true;
}

void wait_until(const std::atomic<bool> &flag) {
    for (int waits = 0; waits < 20'000 && !flag; ++waits) {
        kelo_hal_system_sleep(1);
    }
    ASSERT_TRUE(flag);
}

class linux_bus : public testing::Test {
  protected:
    void SetUp() override {
        receiver = &busy;
        ASSERT_EQ(cmmod_reg_msgcb(keep_busy, &busy.id), 0);
        ASSERT_EQ(cmmod_post_msg(busy.id, "first", 5), 0);
        wait_until(busy.entered);
    }
    void TearDown() override {
        busy.unregisters = true;
        linux_port::shutdown();
        EXPECT_EQ(blocks, 0) << "a block was not released";
    }

    busy_receiver busy;
};

} // namespace

TEST_F(linux_bus, releases_messages_that_wait_when_it_is_shut_down) {
    EXPECT_EQ(cmmod_post_msg(busy.id, "second", 6), 0);
    EXPECT_EQ(cmmod_post_msg(busy.id, nullptr, 0), 0);
    uint16_t other = CMMOD_NO_MESSAGE_ID;
    ASSERT_EQ(cmmod_reg_msgcb([](cmmod_msg_t *) {}, &other), 0);
    EXPECT_EQ(cmmod_post_msg(other, "third", 5), 0);
    EXPECT_EQ(blocks, 4);
}

TEST_F(linux_bus, releases_messages_that_wait_when_their_receiver_goes) {
    uint16_t other = CMMOD_NO_MESSAGE_ID;
    ASSERT_EQ(cmmod_reg_msgcb([](cmmod_msg_t *) {}, &other), 0);
    EXPECT_EQ(cmmod_post_msg(busy.id, "second", 6), 0);
    EXPECT_EQ(cmmod_post_msg(other, "third", 5), 0);
    EXPECT_EQ(cmmod_unreg_msgcb(other), 0);
    EXPECT_EQ(blocks, 2) << "expected only the other one's to be released";
    busy.unregisters = true;
    wait_until(busy.left);
    EXPECT_EQ(blocks, 0);
}

TEST_F(linux_bus, says_why_it_refuses_and_keeps_nothing) {
    EXPECT_EQ(cmmod_reg_msgcb(nullptr, &busy.id), -EINVAL);
    EXPECT_EQ(cmmod_reg_msgcb(keep_busy, nullptr), -EINVAL);
    EXPECT_EQ(cmmod_post_msg(busy.id, nullptr, 1), -EINVAL);
    EXPECT_EQ(cmmod_post_msg(static_cast<uint16_t>(busy.id + 1), "x", 1), -ENOENT);
    EXPECT_EQ(cmmod_unreg_msgcb(static_cast<uint16_t>(busy.id + 1)), -ENOENT);
    put_rfc_data(nullptr);
    EXPECT_EQ(blocks, 1);
    for (int waiting = 0; waiting < 1024; ++waiting) {
        ASSERT_EQ(cmmod_post_msg(busy.id, "x", 1), 0);
    }
    EXPECT_EQ(cmmod_post_msg(busy.id, "x", 1), -ENOBUFS);
    EXPECT_EQ(blocks, 1 + 1024);
}

TEST_F(linux_bus, gives_every_number_but_one_and_then_those_that_are_free_again) {
    uint16_t id = 0;
    for (uint32_t registered = 1; registered < CMMOD_NO_MESSAGE_ID - 1; ++registered) {
        ASSERT_EQ(cmmod_reg_msgcb(keep_busy, &id), 0) << registered;
        ASSERT_NE(id, CMMOD_NO_MESSAGE_ID);
    }
    id = 7;
    EXPECT_EQ(cmmod_reg_msgcb(keep_busy, &id), -ENOSPC);
    EXPECT_EQ(id, 7);
    EXPECT_EQ(cmmod_unreg_msgcb(4711), 0);
    EXPECT_EQ(cmmod_reg_msgcb(keep_busy, &id), 0);
    EXPECT_EQ(id, 4711);
}

TEST(linux_timer, gives_every_number_but_0_and_says_why_it_refuses) {
    const auto callback = [](uint16_t, void *) {};
    uint16_t id = 0;
    for (uint32_t made = 0; made < UINT16_MAX; ++made) {
        ASSERT_EQ(sys_add_timer(callback, nullptr, &id), 0) << made;
        ASSERT_NE(id, 0);
    }
    EXPECT_EQ(sys_add_timer(callback, nullptr, &id), -ENOSPC);
    EXPECT_EQ(sys_delete_timer(4711), 0);
    EXPECT_EQ(sys_delete_timer(4711), -ENOENT);
    EXPECT_EQ(sys_stop_timer(4711), -ENOENT);
    EXPECT_EQ(sys_start_timer(4711, 1, SYS_TIMER_ONE_SHOT), -ENOENT);
    EXPECT_EQ(sys_add_timer(callback, nullptr, &id), 0);
    EXPECT_EQ(id, 4711);
    EXPECT_EQ(sys_start_timer(id, 0, SYS_TIMER_ONE_SHOT), -EINVAL);
    EXPECT_EQ(sys_start_timer(id, 1, 2), -EINVAL);
    EXPECT_EQ(sys_start_timer(id, 3'600'000, SYS_TIMER_PERIODIC), 0);
    EXPECT_EQ(IsThisSysTimerRun(id), 1);
    EXPECT_EQ(sys_stop_timer(id), 0);
    EXPECT_EQ(IsThisSysTimerRun(id), 0);
    EXPECT_EQ(sys_add_timer(nullptr, nullptr, &id), -EINVAL);
    EXPECT_EQ(sys_add_timer(callback, nullptr, nullptr), -EINVAL);
    linux_port::shutdown();
}
