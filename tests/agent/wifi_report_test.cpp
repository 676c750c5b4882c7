/* The report of a failed network configuration, which a process makes once: each failure is tested
 * in its own process. */
#include "end_process.h"
#include "gateway_services/scenario.h"
#include "story_gateway.h"

#include <cstdio>

namespace {

struct failing_step {
    const char *operation;
    sim::trigger when;
    sim::failure how;
    const char *log;
    uint64_t sockets; // that are allowed to broadcast, and closed
    uint64_t sends;
};

/** Makes the report; exits with 0 when the failure was logged and the access point shut down. */
[[noreturn]] void report(const failing_step &failing) {
    sim::world world;
    story_gateway gateway(world);
    ::gateway::set_gateway_field("nw_cfg_stat", "1");
    ::gateway::set_wifi_mode(4);
    world.fail(failing.operation, failing.when, failing.how);
    engr_lan_ap_nw_cfg_error_report(nullptr, 3);
    const bool is_given_up = gateway.trace.back().find("wf_station_connect") != std::string::npos;
    const bool is_logged = failing.log == nullptr ? !world.log().has(0, "") // expected: none
                                                  : world.log().has(0, failing.log);
    const bool is_right = is_logged && is_given_up && world.in_use().memory_blocks == 0 &&
                          world.in_use().sockets == 0 &&
                          world.calls("kelo_hal_net_set_boardcast") == failing.sockets &&
                          world.calls("kelo_hal_net_close") == failing.sockets &&
                          world.calls("kelo_hal_net_send_to") == failing.sends;
    if (!is_right) {
        std::fputs(world.log().text().c_str(), stderr);
    }
    end_process(is_right ? 0 : 1);
}

TEST(wifi_report, that_fails_is_logged_and_the_access_point_is_shut_down) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const failing_step cases[] = {
        {"kelo_hal_net_socket_create", sim::nth(1), {}, "create udp socket err", 0, 0},
        {"kelo_hal_net_socket_create", sim::nth(1), {.result = 0}, "sendto Failed,len:", 1, 4},
        {"Malloc", sim::nth(1), {}, "aes128_ecb_encode error:-3", 1, 0},
        {"Malloc", sim::nth(2), {}, "__gw_send_da_to_app error", 1, 0},
        {"kelo_hal_net_send_to", sim::every(), {}, "ret:-1,errno:-199 port:6670", 1, 4},
        {"kelo_hal_net_send_to", sim::every(), {.result = 0}, nullptr, 1, 4},
    };
    for (const auto &one : cases) {
        EXPECT_EXIT(report(one), testing::ExitedWithCode(0), "")
            << one.operation
            << ": expected in the log: " << (one.log != nullptr ? one.log : "no failure");
    }
}

} // namespace
