// Waits of the Linux port: for a time while signals come, and for one's turn to send.
#include "platform/clock.h"
#include "send_order.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <thread>

namespace {

using linux_port::send_order;
using linux_port::send_turn;

/** Milliseconds between two signals: far less than the sleep. */
constexpr int signal_interval_ms = 2;
constexpr uint32_t sleep_ms = 50;
/** After so many, in ten seconds at least, the signals end by themselves. */
constexpr int signals_max = 5000;

volatile sig_atomic_t signals = 0;

void repeat_signal(int interval_ms) {
    const itimerval interval{{0, interval_ms * 1000}, {0, interval_ms * 1000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
}

void count_signal(int) {
    signals = signals + 1;
    if (signals == signals_max) {
        repeat_signal(0);
    }
}

/** Closes standard input meanwhile, so that the next descriptor of the system is 0. */
class closed_input {
  public:
    closed_input() { close(STDIN_FILENO); }
    ~closed_input() {
        dup2(before_, STDIN_FILENO);
        close(before_);
    }
    closed_input(const closed_input &) = delete;
    closed_input &operator=(const closed_input &) = delete;

    static bool is_0_open() { return fcntl(STDIN_FILENO, F_GETFD) >= 0; }

  private:
    int before_ = dup(STDIN_FILENO);
};

} // namespace

TEST(linux_wait, signals_do_not_make_a_sleep_longer) {
    struct sigaction action {};
    action.sa_handler = count_signal;
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    repeat_signal(signal_interval_ms);
    kelo_hal_system_sleep(sleep_ms);
    repeat_signal(0);
    EXPECT_GT(signals, 0) << "no signal came during the sleep";
    EXPECT_LT(signals, signals_max) << "expected the sleep to end although signals go on";
}

TEST(send_turns, one_event_serves_every_wait_and_a_free_turn_needs_none) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[1]);
    const int hung_up = ends[0]; // a wait with it ends at once
    const closed_input next_is_0;
    {
        send_order order;
        EXPECT_EQ(order.take_turn(hung_up), send_turn::taken);
        EXPECT_FALSE(closed_input::is_0_open()) << "expected no event before anybody waits";
        for (int waits = 0; waits < 2; ++waits) {
            EXPECT_EQ(order.take_turn(hung_up), send_turn::hung_up);
        }
        EXPECT_TRUE(closed_input::is_0_open()) << "expected the event to have number 0";
        order.end_turn(false);
        EXPECT_EQ(order.take_turn(hung_up), send_turn::taken) << "nobody waits any more";
    }
    EXPECT_FALSE(closed_input::is_0_open()) << "expected one event, which is closed";
    close(hung_up);
}

TEST(send_turns, who_waits_fails_when_sending_ends_though_the_turn_is_not_given_back) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const closed_input next_is_0;
    {
        send_order order;
        EXPECT_EQ(order.take_turn(ends[0]), send_turn::taken);
        send_turn found{};
        std::thread waiter([&] { found = order.take_turn(ends[0]); });
        for (int waits = 0; waits < 20'000 && !closed_input::is_0_open(); ++waits) {
            kelo_hal_system_sleep(1); // until it has made its event
        }
        order.end_sending();
        waiter.join();
        EXPECT_EQ(found, send_turn::ended);
    }
    close(ends[0]);
    close(ends[1]);
}
