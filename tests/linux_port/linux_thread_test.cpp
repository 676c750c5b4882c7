// What threads of the Linux port leave behind.
#include "platform/clock.h"
#include "platform/thread.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <iterator>

namespace {

thread_local char large[1 << 20];

int lowest_free_descriptor() {
    const int found = dup(STDERR_FILENO);
    close(found);
    return found;
}

void release_itself(void *handle) {
    auto *own = static_cast<std::atomic<thrd_handle_t> *>(handle);
    own->wait(nullptr); // until the starter has stored it
    EXPECT_EQ(DeleteThrdHandle(own->load()), 0);
}

} // namespace

TEST(linux_thread, one_that_releases_itself_leaves_no_descriptor) {
    static std::atomic<thrd_handle_t> own;
    const int before = lowest_free_descriptor();
    thrd_handle_t started = nullptr;
    const thrd_param_t param{0, 0, "releases"};
    ASSERT_EQ(CreateAndStart(&started, nullptr, nullptr, release_itself, &own, &param), 0);
    EXPECT_NE(lowest_free_descriptor(), before) << "expected a running thread to have its event";
    own = started;
    own.notify_one();
    for (int waits = 0; waits < 20'000 && lowest_free_descriptor() != before; ++waits) {
        kelo_hal_system_sleep(1);
    }
    EXPECT_EQ(lowest_free_descriptor(), before);
}

TEST(linux_thread, has_its_stack_beside_large_thread_local_variables) {
    thrd_handle_t started = nullptr;
    const thrd_param_t param{0x800, 0, "small"};
    const auto touch = [](void *) { std::fill(std::begin(large), std::end(large), 'x'); };
    ASSERT_EQ(CreateAndStart(&started, nullptr, nullptr, touch, nullptr, &param), 0);
    EXPECT_EQ(DeleteThrdHandle(started), 0);
}
