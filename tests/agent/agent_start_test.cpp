/* Start of the agent, every way in which it fails, and what is left then. */
#include "story_gateway.h"
#include "transport/frame_types.h"

namespace {

using agent_start = agent_test;

TEST_F(agent_start, a_second_start_changes_nothing_and_a_stop_without_start_does_nothing) {
    EXPECT_EQ(engr_lan_pro_cntl_exit(), 0);
    EXPECT_TRUE(world.log().has(0, "lan_pro_cntl is null"));
    EXPECT_EQ(engr_lan_pro_cntl_get_valid_connect_cnt(), 0);
    gateway.start();
    const sim::resources before = world.in_use();
    EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_WECHAT), 0);
    EXPECT_TRUE(world.log().has(1, "lan is inited before"));
    EXPECT_EQ(world.in_use(), before);
    EXPECT_TRUE(world.log().has(4, "KELO Mode, start KELO thread to listen Lan"));
    EXPECT_TRUE(world.log().has(4, "cmmod register finish 1"));
}

TEST_F(agent_start, a_failing_step_is_logged_and_rolled_back_and_the_next_start_works) {
    const struct {
        const char *what;
        const char *operation;
        uint64_t n;
        int32_t expected;
        const char *log;
    } cases[] = {
        {"upgrade record", "Malloc", 1, -3, nullptr},
        {"watchdog", "sys_add_timer", 1, -1, nullptr},
        {"controller record", "Malloc", 2, -3, "Malloc lan_pro_cntl fails"},
        {"mutex", "kelo_hal_mutex_create_init", 1, -55, "create mutex fails"},
        {"thread", "CreateAndStart", 1, -55, "start thread fails -55"},
        {"discovery timer", "sys_add_timer", 2, -55, nullptr},
        {"bus registration", "cmmod_reg_msgcb", 1, -55, nullptr},
    };
    const sim::resources before = world.in_use();
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        world.log().clear();
        world.fail(one.operation, sim::nth(one.n), {.result = -55});
        EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), one.expected);
        EXPECT_TRUE(one.log == nullptr || world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_EQ(world.in_use().sockets, before.sockets);
        EXPECT_EQ(world.in_use().threads, before.threads) << "expected no thread to be left";
        EXPECT_EQ(world.in_use().timers, before.timers) << "expected no timer to be left";
        EXPECT_EQ(world.in_use().mutexes, before.mutexes) << "expected no mutex to be left";
        EXPECT_EQ(world.in_use().memory_blocks, before.memory_blocks)
            << "expected no memory to be left";
        EXPECT_EQ(engr_lan_data_report_cb(FRM_DP_REPORT, 0, "x", 1), -940)
            << "expected the agent not to be started";
        gateway.start();
        EXPECT_EQ(gateway.connect().ask(FRM_KEEPALIVE), "9/0/0/");
        gateway.stop();
    }
}

TEST(agent_start_races, accepts_no_client_before_it_has_succeeded) {
    uint64_t early_calls = 0;
    sim::expect_all_seeds(100, [&](sim::world &world) {
        story_gateway gateway(world);
        bool is_over = false;
        auto visitor = world.spawn("visitor", [&] {
            world.run_until([&] { return world.calls("sys_start_timer") > 0; });
            lpc_close_all_socket();
            if (!is_over) {
                ++early_calls;
                for (const sim::log_line &line : world.log().lines()) {
                    EXPECT_NE(line.thread + " " + line.message, "visitor close all socket");
                }
            }
        });
        world.fail("cmmod_reg_msgcb", sim::nth(1));
        EXPECT_NE(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
        is_over = true;
        visitor.join();
    });
    EXPECT_GT(early_calls, 0U) << "expected a call beside the start under some seed";
}

TEST_F(agent_start, the_server_works_without_discovery_ticks) {
    world.fail("sys_start_timer", sim::nth(1));
    gateway.start();
    EXPECT_EQ(gateway.connect().ask(FRM_KEEPALIVE), "9/0/0/");
}

TEST_F(agent_start, without_network_opens_no_socket_and_its_stop_closes_none) {
    ::gateway::set_network_up(false);
    ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
    world.run_for(6'000);
    EXPECT_EQ(world.in_use().sockets, 0U);
    gateway.stop();
    EXPECT_EQ(world.calls("kelo_hal_net_close"), 0U)
        << "expected no stranger's socket to be closed";
}

TEST_F(agent_start, a_thousand_starts_and_stops_leave_nothing_behind) {
    gateway.start();
    world.run_for(6'000);
    gateway.stop();
    const sim::resources before = world.in_use();
    for (int i = 0; i < 1000; ++i) {
        gateway.start();
        world.run_for(i % 100 == 0 ? 6'000 : 0);
        gateway.stop();
        world.log().clear();
    }
    EXPECT_EQ(world.in_use(), before);
}

TEST_F(agent_start, wechat_mode_runs_the_airkiss_task_and_no_server) {
    ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_WECHAT), 0);
    EXPECT_TRUE(world.log().has(4, "Wechat Mode, start WeChat thread to listen Lan"));
    world.run_for(20'000);
    EXPECT_FALSE(world.listens(lan_port));
    EXPECT_EQ(world.log().count(5, "Send airkiss discover"), 4U);
    EXPECT_FALSE(world.log().has("Send udp discover"));
}

} // namespace
