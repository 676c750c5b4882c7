/* What the agent asks of the platform below it, call by call: options of its sockets, sizes of its
 * waits and transfers. */
#include "story_gateway.h"
#include "transport/frame_types.h"
#include "upgrade/upgrade_worker.h"

#include <gmock/gmock.h>

#include <sstream>

namespace {

struct platform_calls : sim::test {
    platform_calls() : sim::test({.trace = true}), gateway(world) {}

    /** Calls that a thread has made of operations whose name starts so, one a line, since the last
     * look. */
    std::string since_last_look(const std::string &thread, const std::string &prefix) {
        const std::string all = world.trace_text();
        std::istringstream lines(all.substr(seen_));
        seen_ = all.size();
        std::string found;
        std::string time;
        std::string caller;
        std::string call;
        while (lines >> time >> caller && std::getline(lines >> std::ws, call)) {
            found += caller == thread && call.starts_with(prefix) ? call + '\n' : "";
        }
        return found;
    }

    story_gateway gateway;

  private:
    size_t seen_ = 0;
};

TEST_F(platform_calls, set_up_the_listening_socket_and_each_client) {
    gateway.start();
    EXPECT_EQ(since_last_look("lpc_task", "kelo_hal_net_"),
              "kelo_hal_net_socket_create(0) = 3\n"
              "kelo_hal_net_set_bufsize(3, 131072, 7) = 0\n"
              "kelo_hal_net_set_reuse(3) = 0\n"
              "kelo_hal_net_bind(3, 0, 6668) = 0\n"
              "kelo_hal_net_set_cloexec(3) = 0\n"
              "kelo_hal_net_listen(3, 5) = 0\n");
    story_app app = gateway.connect();
    EXPECT_EQ(since_last_look("lpc_task", "kelo_hal_net_"),
              "kelo_hal_net_select(4, 10000) = 1\n"
              "kelo_hal_net_accept(3) = 4\n"
              "kelo_hal_net_set_keepalive(4, 1, 30, 5, 1) = 0\n"
              "kelo_hal_net_set_reuse(4) = 0\n"
              "kelo_hal_net_set_block(4, 0) = 0\n");
    EXPECT_FALSE(world.log().has(0, "")) << "expected no failure to be logged";
    app.send(1, FRM_KEEPALIVE);
    world.run_until_idle();
    app.peer.close();
    world.run_until_idle();
    const std::string served = since_last_look("lpc_task", "kelo_hal_net_");
    EXPECT_THAT(served, testing::StartsWith("kelo_hal_net_select(5, 10000) = 1\n"
                                            "kelo_hal_net_recv(4, 512) [24 bytes "));
    EXPECT_THAT(served, testing::HasSubstr("kelo_hal_net_send(4, 28) [28 bytes "));
    EXPECT_THAT(served, testing::EndsWith("kelo_hal_net_close(4) = 0\n"));
    world.run_for(10'000);
    EXPECT_EQ(since_last_look("lpc_task", "kelo_hal_net_"), "kelo_hal_net_select(5, 10000) = 0\n")
        << "expected the highest descriptor never to go down";
    EXPECT_FALSE(world.log().has("active socket num:0"));
}

TEST_F(platform_calls, set_up_the_broadcast_once) {
    gateway.start();
    since_last_look("timers", "");
    world.run_for(5'000);
    EXPECT_THAT(since_last_look("timers", "kelo_hal_net_"),
                testing::MatchesRegex("kelo_hal_net_socket_create\\(1\\) = 4\n"
                                      "kelo_hal_net_socket_bind\\(4\\) .11 bytes .*. = 0\n"
                                      "kelo_hal_net_set_boardcast\\(4\\) = 0\n"
                                      "kelo_hal_net_send_to\\(4, 156, 4294967295, 6667\\) .*\n"));
    world.run_for(5'000);
    EXPECT_THAT(since_last_look("timers", "kelo_hal_net_"),
                testing::StartsWith("kelo_hal_net_send_to(4, "));
}

TEST_F(platform_calls, start_threads_with_their_stack_and_priority) {
    gateway.start();
    EXPECT_THAT(since_last_look("main", "CreateAndStart"),
                testing::StartsWith("CreateAndStart(2048, 3) [8 bytes "));
    __lan_upgrade_nofity({}, 0);
    EXPECT_THAT(since_last_look("main", "CreateAndStart"),
                testing::StartsWith("CreateAndStart(3072, 2) [19 bytes "));
    gateway.stop();
    ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_WECHAT), 0);
    EXPECT_THAT(since_last_look("main", "CreateAndStart"),
                testing::StartsWith("CreateAndStart(2048, 3) [11 bytes "));
    ASSERT_EQ(engr_lan_ap_nw_cfg_start([](const char *, const char *, const char *) { return 0; }),
              0);
    EXPECT_THAT(since_last_look("main", "CreateAndStart"),
                testing::StartsWith("CreateAndStart(2048, 5) [9 bytes "));
    engr_lan_ap_nw_cfg_stop();
}

} // namespace
