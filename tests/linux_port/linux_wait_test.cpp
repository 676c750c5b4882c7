// Waits of the Linux port: for a time while signals come, and for one's turn to send.
#include "platform/clock.h"
#include "send_order.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

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

TEST(send_order, one_event_serves_every_wait_and_a_free_turn_needs_none) {
    using linux_port::send_turn;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[1]);
    const int hung_up = ends[0]; // a wait with it ends at once
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    {
        linux_port::send_order order;
        EXPECT_EQ(order.take_turn(hung_up), send_turn::taken);
        EXPECT_LT(fcntl(STDIN_FILENO, F_GETFD), 0) << "expected no event before anybody waits";
        for (int waits = 0; waits < 2; ++waits) {
            EXPECT_EQ(order.take_turn(hung_up), send_turn::hung_up);
        }
        EXPECT_GE(fcntl(STDIN_FILENO, F_GETFD), 0) << "expected the event to have number 0";
        order.end_turn(false);
        EXPECT_EQ(order.take_turn(hung_up), send_turn::taken) << "nobody waits any more";
    }
    EXPECT_LT(fcntl(STDIN_FILENO, F_GETFD), 0)
        << "expected it to be closed, and to be the only one";
    dup2(input, STDIN_FILENO);
    close(input);
    close(hung_up);
}
