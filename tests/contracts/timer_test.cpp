// Contract of timers.
#include "contract_test.h"

#include "platform/timer.h"

#include <set>

namespace contract_tests {

namespace {

/** A timer that runs a function; deleted at the end of the scope. */
class port_timer {
  public:
    explicit port_timer(std::function<void()> callback) : callback_(std::move(callback)) {
        EXPECT_EQ(sys_add_timer(run, this, &id), 0);
        EXPECT_NE(id, 0);
    }
    ~port_timer() { sys_delete_timer(id); }
    port_timer(const port_timer &) = delete;
    port_timer &operator=(const port_timer &) = delete;

    void start(uint32_t milliseconds, int32_t type = SYS_TIMER_ONE_SHOT) const {
        EXPECT_EQ(sys_start_timer(id, milliseconds, type), 0);
    }

    uint16_t id = 0;
    std::atomic<int> expiries{0};

  private:
    static void run(uint16_t expired_id, void *argument) {
        auto *self = static_cast<port_timer *>(argument);
        EXPECT_EQ(expired_id, self->id);
        self->callback_();
        self->expiries++;
    }
    std::function<void()> callback_;
};

class timer_contract : public contract_test {
  protected:
    /** Lets everything that is due within that time happen: a timer started now expires after it.
     */
    void pass(uint32_t milliseconds) {
        port_timer marker([] {});
        marker.start(milliseconds);
        EXPECT_TRUE(wait_until([&] { return marker.expiries > 0; }));
    }
};

} // namespace

TEST_F(timer_contract, a_one_shot_expires_once_not_early_and_counts_as_stopped_in_its_callback) {
    port->run([&] {
        uint64_t expired_at = 0;
        int32_t runs_inside = -1;
        uint16_t id = 0;
        port_timer timer([&] {
            expired_at = port->now_ms();
            runs_inside = IsThisSysTimerRun(id);
        });
        id = timer.id;
        EXPECT_EQ(IsThisSysTimerRun(id), 0);
        const uint64_t start = port->now_ms();
        timer.start(20);
        EXPECT_EQ(IsThisSysTimerRun(id), 1);
        EXPECT_TRUE(wait_until([&] { return timer.expiries > 0; }));
        EXPECT_GE(expired_at - start, 20u);
        EXPECT_EQ(runs_inside, 0);
        pass(40);
        EXPECT_EQ(timer.expiries, 1);
    });
}

TEST_F(timer_contract, a_periodic_timer_expires_until_it_is_stopped_also_from_its_callback) {
    port->run([&] {
        uint16_t id = 0;
        int calls = 0;
        uint64_t third_at = 0;
        port_timer timer([&] {
            EXPECT_EQ(IsThisSysTimerRun(id), 1);
            if (++calls == 3) {
                third_at = port->now_ms();
                EXPECT_EQ(sys_stop_timer(id), 0);
            }
        });
        id = timer.id;
        const uint64_t start = port->now_ms();
        timer.start(10, SYS_TIMER_PERIODIC);
        EXPECT_TRUE(wait_until([&] { return timer.expiries == 3; }));
        EXPECT_GE(third_at - start, 30u);
        pass(30);
        EXPECT_EQ(timer.expiries, 3);
        EXPECT_EQ(IsThisSysTimerRun(id), 0);
    });
}

TEST_F(timer_contract, expiries_missed_during_a_long_callback_are_not_made_up_for) {
    port->run([&] {
        bool first = true;
        port_timer timer([&] {
            if (std::exchange(first, false)) {
                kelo_hal_system_sleep(105); // ten periods and a half
            }
        });
        const uint64_t start = port->now_ms();
        timer.start(10, SYS_TIMER_PERIODIC);
        EXPECT_TRUE(wait_until([&] { return timer.expiries >= 4; }));
        // The first, the one that came due meanwhile, and two a period apart; a burst would make
        // all four within it.
        EXPECT_GE(port->now_ms() - start, 10u + 105 + 10);
    });
}

TEST_F(timer_contract, stopped_restarted_and_deleted_timers_do_not_expire_at_the_old_time) {
    port->run([&] {
        port_timer stopped([] {});
        port_timer restarted([] {});
        std::atomic<bool> deleted_ran{false};
        stopped.start(10);
        restarted.start(10);
        restarted.start(an_hour_ms);
        {
            port_timer deleted([&] { deleted_ran = true; });
            deleted.start(10);
        }
        EXPECT_EQ(sys_stop_timer(stopped.id), 0);
        pass(30);
        EXPECT_EQ(stopped.expiries, 0);
        EXPECT_EQ(restarted.expiries, 0);
        EXPECT_FALSE(deleted_ran);
        EXPECT_EQ(IsThisSysTimerRun(restarted.id), 1);
    });
}

TEST_F(timer_contract, a_deletion_waits_for_the_callback_that_runs) {
    port->run([&] {
        std::atomic<bool> entered{false};
        std::atomic<bool> left{false};
        port_timer timer([&] {
            entered = true;
            kelo_hal_system_sleep(50);
            left = true;
        });
        timer.start(1);
        EXPECT_TRUE(wait_until([&] { return entered.load(); }));
        EXPECT_EQ(sys_delete_timer(timer.id), 0);
        EXPECT_TRUE(left);
        EXPECT_LT(sys_delete_timer(timer.id), 0) << "deleted already";
        EXPECT_LT(sys_start_timer(timer.id, 10, SYS_TIMER_ONE_SHOT), 0);
        EXPECT_EQ(IsThisSysTimerRun(timer.id), 0);
    });
}

TEST_F(timer_contract, a_callback_may_delete_its_own_timer_and_start_another) {
    port->run([&] {
        port_timer second([] {});
        port_timer *self = nullptr;
        port_timer first([&] {
            EXPECT_EQ(sys_delete_timer(self->id), 0);
            second.start(1);
        });
        self = &first;
        first.start(1, SYS_TIMER_PERIODIC);
        EXPECT_TRUE(wait_until([&] { return second.expiries == 1; }));
        EXPECT_EQ(first.expiries, 1);
    });
}

TEST_F(timer_contract, ids_of_deleted_timers_come_back_late) {
    port->run([&] {
        std::set<uint16_t> ids;
        for (int i = 0; i < 1000; i++) {
            const port_timer timer([] {});
            EXPECT_TRUE(ids.insert(timer.id).second) << "id " << timer.id << " came back";
        }
    });
}

} // namespace contract_tests
