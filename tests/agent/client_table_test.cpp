/* The client connection table: what its functions refuse, and what a sweep does. */
#include "clients/client_table.h"
#include "clients/lan_pro_cntl.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

namespace {

struct client_table : agent_test {
    client_table() { gateway.start(); }

    static const lan_pro_cntl_t &record() { return *lan_pro_cntl.load(); }
};

TEST_F(client_table, calls_for_an_unknown_socket_or_without_clients_are_logged_and_change_nothing) {
    const struct {
        const char *what;
        void (*call)();
        const char *log; // null: none
    } cases[] = {
        {"add none", [] { __lpc_add_socket(-1, 0); }, "add socket err 0 -1"},
        {"update none", [] { __up_socket_time(-1, 0); }, "up_socket_time err 0 -1"},
        {"update an unknown one", [] { __up_socket_time(0, 0); }, nullptr},
        {"fault without clients", [] { __lpc_set_socket_fault(77); }, "set socket fault err 0 77"},
        {"close without clients", [] { __lpc_close_socket(77); }, "close socket err 0 77"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        world.log().clear();
        one.call();
        EXPECT_EQ(world.log().count(0, ""), one.log != nullptr ? 1U : 0U);
        EXPECT_TRUE(one.log == nullptr || world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_EQ(world.log().lines().size(), 1U) << "expected nothing to follow a refusal";
        EXPECT_EQ(record().socket_num, 0);
    }
    story_app app = gateway.connect();
    world.log().clear();
    __lpc_set_socket_fault(-1);
    __lpc_close_socket(-1);
    EXPECT_TRUE(world.log().has(0, "set socket fault err 1 -1"));
    EXPECT_TRUE(world.log().has(0, "close socket err 1 -1"));
    __lpc_set_socket_fault(0);
    __lpc_close_socket(0);
    EXPECT_EQ(world.log().count(0, ""), 2U) << "expected silence about an unknown socket";
    EXPECT_EQ(__get_lpc_sockets_fault(77), 1) << "expected an unknown socket to count as faulty";
    EXPECT_EQ(__get_lpc_valid_socket_num(), 1);
    EXPECT_EQ(app.ask(FRM_KEEPALIVE), "9/0/0/");
    EXPECT_EQ(world.log().count(0, ""), 2U);
    __lpc_set_socket_fault(record().sockets[0]);
    EXPECT_EQ(__get_lpc_valid_socket_num(), 0);
    EXPECT_TRUE(world.log().has(5, "socket all falult:1"));
    const uint64_t closes = world.calls("kelo_hal_net_close");
    __lpc_close_all_socket();
    EXPECT_EQ(world.calls("kelo_hal_net_close"), closes + 2) << "expected listener and client";
    EXPECT_EQ(__get_lpc_valid_socket_num(), 0);
    world.log().clear();
    __check_socket_tm(0);
    EXPECT_FALSE(world.log().has("no socket to close")) << "expected no look at an empty table";
}

TEST_F(client_table, is_empty_for_every_caller_once_the_agent_is_stopped) {
    story_app app = gateway.connect();
    gateway.stop();
    ASSERT_EQ(lan_pro_cntl.load(), nullptr);
    int32_t sockets[lan_client_max];
    EXPECT_EQ(__get_lpc_socket_num(), 0);
    EXPECT_EQ(__get_lpc_sockets(sockets), 0);
    EXPECT_EQ(__get_lpc_valid_socket_num(), 0);
    world.log().clear();
    __lpc_close_all_socket();
    EXPECT_FALSE(world.log().has("close all socket"));
}

TEST_F(client_table, holds_ten_clients_and_refuses_an_eleventh) {
    std::vector<story_app> apps;
    for (int i = 0; i < lan_client_max; ++i) {
        apps.push_back(gateway.connect());
    }
    __lpc_add_socket(77, 0);
    EXPECT_TRUE(world.log().has(0, "add socket err 10 77"));
    EXPECT_EQ(__get_lpc_socket_num(), 10);
    __up_socket_time(record().sockets[9], 5);
    EXPECT_EQ(record().socket_time[9], 5U) << "expected a full table to be kept up to date";
}

TEST_F(client_table, closing_a_client_moves_all_fields_of_the_later_ones_up) {
    std::vector<story_app> apps;
    for (int i = 0; i < 4; ++i) {
        apps.push_back(gateway.connect());
        __up_socket_time(record().sockets[i], world.posix_s() - static_cast<uint32_t>(i));
    }
    const int32_t second = record().sockets[1];
    const int32_t third = record().sockets[2];
    const int32_t fourth = record().sockets[3];
    __lpc_set_socket_fault(fourth);
    {
        const lpc_send under_way(fourth);
        __lpc_close_socket(second);
        EXPECT_EQ(record().foreign_sends[1], 0U);
        EXPECT_EQ(record().foreign_sends[2], 1U);
    }
    ASSERT_EQ(record().socket_num, 3);
    EXPECT_EQ(record().sockets[1], third);
    EXPECT_EQ(record().socket_fault[1], 0);
    EXPECT_EQ(record().socket_time[1], world.posix_s() - 2);
    EXPECT_EQ(record().sockets[2], fourth);
    EXPECT_EQ(record().socket_fault[2], 1);
    EXPECT_EQ(record().socket_time[2], world.posix_s() - 3);
    EXPECT_TRUE(apps[1].peer.ended());
    EXPECT_EQ(__get_lpc_valid_socket_num(), 2);
    __lpc_add_socket(0, 5); // in the slot that the fourth had
    __up_socket_time(0, 7);
    EXPECT_EQ(record().socket_time[3], 7U);
    EXPECT_EQ(record().foreign_sends[3], 0U);
    EXPECT_EQ(__get_lpc_sockets_fault(0), 0) << "expected nothing of an earlier client";
    __lpc_set_socket_fault(0);
    EXPECT_EQ(__get_lpc_sockets_fault(0), 1);
    __lpc_close_socket(0);
    ASSERT_EQ(record().socket_num, 3);
    const uint64_t before = world.now_ms();
    gateway.stop();
    EXPECT_LT(world.now_ms() - before, 20U) << "expected no wait for a send that is over";
}

TEST(client_table_sweep, closes_faulty_clients_and_those_silent_for_120_s_to_30_days) {
    const struct {
        const char *what;
        int64_t silent_s;
        bool is_faulty;
        bool is_closed;
    } cases[] = {
        {"119 s", 119, false, false},
        {"120 s", 120, false, true},
        {"30 days but a second", 30 * 24 * 3600 - 1, false, true},
        {"30 days", 30 * 24 * 3600, false, false},
        {"heard of in the future", -1, false, false},
        {"faulty", 0, true, true},
        {"faulty for longer than 30 days", 31 * 24 * 3600, true, true},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        sim::world world;
        {
            story_gateway gateway(world);
            gateway.start();
            story_app app = gateway.connect();
            const lan_pro_cntl_t &record = *lan_pro_cntl.load();
            if (one.is_faulty) {
                __lpc_set_socket_fault(record.sockets[0]);
            }
            __check_socket_tm(static_cast<uint32_t>(record.socket_time[0] + one.silent_s));
            EXPECT_EQ(record.socket_num, one.is_closed ? 0 : 1);
            EXPECT_EQ(app.peer.wait_for_end(10), one.is_closed);
        }
        EXPECT_TRUE(world.finish().empty());
    }
}

/** Another thread may see the table between the decision to close a client and its close. */
TEST(client_table_sweep, a_swept_client_has_its_fault_flag_cleared_first) {
    uint64_t seen = 0;
    sim::expect_all_seeds(50, [&](sim::world &world) {
        story_gateway gateway(world);
        gateway.start();
        story_app first = gateway.connect();
        story_app second = gateway.connect();
        const lan_pro_cntl_t &record = *lan_pro_cntl.load();
        __lpc_set_socket_fault(record.sockets[0]);
        __lpc_set_socket_fault(record.sockets[1]);
        auto watcher = world.spawn("watcher", [&] {
            world.run_until([&] { return world.log().has(5, "time out close socket"); });
            for (int32_t slot = 0; slot < record.socket_num; ++slot) {
                ++seen;
                EXPECT_EQ(record.socket_fault[slot], 0);
            }
        });
        __check_socket_tm(world.posix_s());
        watcher.join();
    });
    EXPECT_GT(seen, 0U) << "expected to see a client that is not closed yet";
}

} // namespace
