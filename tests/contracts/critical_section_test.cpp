// Contracts of the critical section, and of the delay that a stop does not cut short.
#include "contract_test.h"

#include "platform/owners.h"
#include "platform/timer.h"

namespace contract_tests {

namespace {

using critical_section_contract = contract_test;

} // namespace

TEST_F(critical_section_contract, lets_one_thread_in_at_a_time_told_to_stop_or_not) {
    port->run([&] {
        uint16_t timer = 0;
        ASSERT_EQ(sys_add_timer([](uint16_t, void *) {}, nullptr, &timer), 0);
        int count = 0;
        const auto add = [&] {
            for (int i = 0; i < 200; ++i) {
                const platform::held_critical_section hold;
                const int read = count;
                sys_start_timer(timer, an_hour_ms, SYS_TIMER_ONE_SHOT);
                sys_stop_timer(timer);
                count = read + 1;
            }
        };
        {
            port_thread first(add);
            port_thread second(add);
            first.stop();
            second.stop();
        }
        EXPECT_EQ(count, 400);
        EXPECT_EQ(sys_delete_timer(timer), 0);
    });
}

TEST_F(critical_section_contract, a_delay_lasts_its_time_also_on_a_thread_that_was_told_to_stop) {
    port->run([&] {
        constexpr uint32_t delay_ms = 50;
        std::atomic<bool> delays{false};
        std::atomic<uint64_t> lasted{0};
        port_thread thread([&] {
            delays = true;
            kelo_hal_system_sleep(an_hour_ms); // ended by the stop
            const uint64_t start = port->now_ms();
            kelo_hal_system_delay(delay_ms);
            lasted = port->now_ms() - start;
        });
        EXPECT_TRUE(wait_until([&] { return delays.load(); }));
        thread.stop();
        EXPECT_GE(lasted, delay_ms);
    });
}

} // namespace contract_tests
