/* The TCP server: clients, frames, silence, and a network that comes and goes. */
#include "platform/socket.h"
#include "service_core/listen_socket.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

namespace {

struct server : agent_test {
    server() { gateway.start(); }

    /** Bytes of one request. */
    static std::string frame(uint32_t fr_num, uint32_t fr_type, std::string_view payload = {}) {
        return lan_client::encode_request(fr_num, fr_type, payload);
    }
    static std::string with_byte(std::string bytes, size_t at, char value) {
        bytes[at] = value;
        return bytes;
    }
};

const std::string dev_list_answer =
    R"({"products":[{"cid":"lamp","pid":"p1"},{"cid":"door","pid":"p2"},)"
    R"({"cid":"gone","pid":"p3"}]})";

TEST_F(server, splits_the_stream_into_frames_and_logs_what_it_drops) {
    const std::string list = frame(5, 241);
    const std::string cut_head = list.substr(0, 12);
    struct {
        const char *what;
        std::vector<std::string> reads; // each is one receive of the server
        int answers;
        const char *log; // a line that must appear, null for none
    } const cases[] = {
        {"two frames in one read", {list + list}, 2, nullptr},
        {"a frame behind noise", {"noise\x55\xAA" + list}, 1, nullptr},
        {"noise alone", {std::string(400, '\x55')}, 0, nullptr},
        {"one byte", {"x"}, 0, "not enough data"},
        {"fewer bytes than the smallest frame", {list.substr(0, 23)}, 0, "not enough data"},
        {"a head cut by two reads", {cut_head, list.substr(12) + list}, 1, "not enough data"},
        {"a frame of 600 bytes", {frame(5, 241, std::string(576, 'x'))}, 1, nullptr},
        {"a frame that ends with the receive buffer",
         {std::string(512 - 24, 'n') + list},
         1,
         nullptr},
        {"a frame that begins in the last 23 bytes of the receive buffer",
         {std::string(513 - 24, 'n') + list},
         0,
         "not enough data"},
        {"a frame that begins in the last 24 bytes of the receive buffer",
         {std::string(512 - 24, 'n') + frame(5, 241, "more")},
         1,
         nullptr},
        {"a wrong CRC", {with_byte(list, 16, 'x')}, 1, nullptr},
        {"a wrong tail, then a frame", {with_byte(list, 23, 'x') + list}, 1, "recv tail:0xaa78"},
        {"a frame that begins with the CRC of that", {list.substr(0, 16) + list}, 0, "tail:0x5"},
        {"a frame a byte later", {list.substr(0, 16) + "x" + list}, 1, "recv tail:0xaa000000"},
        {"a length of 7", {with_byte(list, 15, '\x07') + list}, 1, "lan data len is too short:7"},
        {"a length of 0", {with_byte(list, 15, '\x00') + list}, 1, "lan data len is too short:0"},
        {"a length of 4 GiB",
         {with_byte(list, 12, '\xFF') + list},
         0,
         "lan data len is out of limit"},
        {"urgent length just past the limit",
         {with_byte(with_byte(with_byte(list, 13, '\x20'), 14, '\x03'), 15, '\xF0')},
         0,
         "lan data len is out of limit"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        story_app app = gateway.connect();
        world.log().clear();
        for (const std::string &bytes : one.reads) {
            app.peer.send(bytes);
            world.run_until_idle();
        }
        for (int i = 0; i < one.answers; ++i) {
            EXPECT_EQ(app.receive_text(), "241/5/0/" + dev_list_answer);
        }
        EXPECT_EQ(app.receive_text(100), "nothing");
        EXPECT_TRUE(one.log == nullptr || world.log().has(0, one.log)) << "expected: " << one.log;
        app.peer.close();
        world.run_for(20'000);
    }
}

TEST_F(server, takes_frames_of_up_to_2098175_bytes) {
    story_app app = gateway.connect();
    constexpr size_t overhead = 24;
    app.send(3, FRM_DEV_LIST, std::string(2098175 - overhead, 'x'));
    EXPECT_EQ(app.receive_text(), "241/3/0/" + dev_list_answer);
    app.peer.send(frame(4, 241, std::string(2098176 - overhead, 'x')).substr(0, 500));
    world.run_until_idle();
    EXPECT_TRUE(world.log().has(0, "lan data len is out of limit"));
    EXPECT_EQ(app.ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer)
        << "expected the connection to stay open";
}

TEST_F(server, drops_a_frame_whose_rest_does_not_come_and_keeps_the_client) {
    story_app app = gateway.connect();
    app.peer.send(frame(3, 241, std::string(1000, 'x')).substr(0, 600));
    world.run_for(30'009);
    EXPECT_FALSE(world.log().has("unw_recv_nd_size error"));
    world.run_for(1);
    EXPECT_TRUE(world.log().has(0, "kelo_net_recv_nd_size, -4, ret:-1"));
    EXPECT_TRUE(world.log().has(0, "unw_recv_nd_size error ret:-2"));
    EXPECT_FALSE(world.log().has("recv tail")) << "expected nobody to look at the rest";
    EXPECT_EQ(app.ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer);
}

TEST_F(server, drops_a_frame_that_there_is_no_memory_for_and_keeps_the_client) {
    story_app app = gateway.connect();
    world.fail("Malloc", sim::nth(1), {.thread = "lpc_task"});
    app.send(3, FRM_DEV_LIST, std::string(1000, 'x'));
    EXPECT_EQ(app.receive_text(100), "nothing");
    EXPECT_TRUE(world.log().has(0, "malloc error"));
    EXPECT_EQ(app.ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer);
}

TEST_F(server, watches_its_listening_socket_beside_a_client_with_a_lower_number) {
    const int32_t low = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    lpc_close_all_socket();
    ASSERT_TRUE(world.run_until_listening(lan_port, 5'000));
    world.fail("kelo_hal_net_accept", sim::nth(1), {.result = low});
    story_app first = gateway.connect();
    EXPECT_TRUE(world.log().has(4, "new client connect. nums:1 cfd:" + std::to_string(low)));
    EXPECT_EQ(first.ask(FRM_KEEPALIVE), "9/0/0/");
    EXPECT_EQ(gateway.connect().ask(FRM_KEEPALIVE), "9/0/0/");
}

TEST_F(server, restarts_the_timeout_of_a_frame_with_each_byte) {
    story_app app = gateway.connect();
    const std::string whole = frame(3, 241, std::string(1000, 'x'));
    app.peer.send(whole.substr(0, 600));
    world.run_for(29'995);
    app.peer.send(whole.substr(600, 1));
    world.run_for(29'995);
    app.peer.send(whole.substr(601));
    EXPECT_EQ(app.receive_text(), "241/3/0/" + dev_list_answer);
}

TEST_F(server, retries_a_transient_error_only_while_it_completes_a_frame) {
    const struct {
        const char *what;
        int32_t error;
        bool is_transient;
    } cases[] = {
        {"interrupted", KELO_ERR_INTERRUPTED, true},
        {"would block", KELO_ERR_WOULD_BLOCK, true},
        {"try again", KELO_ERR_TRY_AGAIN, true},
        {"another", KELO_ERR_TRY_AGAIN - 1, false},
        {"none", 0, false},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        story_app app = gateway.connect();
        world.log().clear();
        world.fail("kelo_hal_net_recv", sim::nth(2), {.error_code = one.error});
        app.peer.send(frame(3, FRM_DEV_LIST, std::string(1000, 'x')));
        const std::string answer = app.receive_text(1'000);
        EXPECT_EQ(answer.starts_with("241/3/0/"), one.is_transient) << answer;
        EXPECT_EQ(world.log().has(0, "unw_recv_nd_size error ret:-2"), !one.is_transient);
        app.peer.close();
        world.run_for(20'000);
    }
    story_app app = gateway.connect();
    app.peer.send(frame(3, FRM_DEV_LIST, std::string(1000, 'x')).substr(0, 600));
    world.run_for(100);
    world.log().clear();
    app.peer.close();
    world.run_for(10);
    EXPECT_TRUE(world.log().has(0, "unw_recv_nd_size error ret:-2"))
        << "expected an app that left to end it at once";
    EXPECT_EQ(world.log().count("kelo_net_recv_nd_size"), 0U);
}

TEST_F(server, answers_keepalives_itself_with_frame_number_0) {
    story_app app = gateway.connect();
    for (const char *payload : {"", "any payload"}) {
        app.send(77, FRM_KEEPALIVE, payload);
        EXPECT_EQ(app.receive_text(), "9/0/0/");
    }
    EXPECT_FALSE(world.log().has("Process Data"));
    EXPECT_FALSE(world.log().has(0, "")) << "expected no failure to be logged";
}

TEST_F(server, refuses_the_eleventh_client_and_serves_the_ten) {
    std::vector<story_app> apps;
    for (int i = 0; i < 10; ++i) {
        apps.push_back(gateway.connect());
    }
    sim::peer eleventh = world.connect(lan_port);
    EXPECT_TRUE(eleventh.wait_for_end(1000)) << "expected the eleventh client to be closed at once";
    EXPECT_TRUE(world.log().has(0, "out of client limit:0x"));
    for (story_app &app : apps) {
        EXPECT_EQ(app.ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer);
    }
    apps.front().peer.close();
    world.run_for(11'000);
    EXPECT_EQ(gateway.connect().ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer)
        << "expected the free slot to be used again";
}

TEST_F(server, closes_a_client_after_120_s_of_silence_and_not_before) {
    story_app silent = gateway.connect();
    story_app lively = gateway.connect();
    for (int s = 0; s < 119; s += 7) {
        lively.send(1, FRM_KEEPALIVE);
        world.run_for(7'000);
    }
    // 119 s have passed; sweeps open every cycle, which the lively client keeps short.
    EXPECT_EQ(world.log().count("time out close socket"), 0U);
    EXPECT_FALSE(silent.peer.ended());
    world.run_for(1'000);
    lively.send(1, FRM_KEEPALIVE);
    world.run_for(1'000);
    EXPECT_EQ(world.log().count("time out close socket"), 1U);
    EXPECT_TRUE(silent.peer.ended());
    for (int s = 0; s < 140; s += 7) {
        EXPECT_EQ(lively.ask(FRM_KEEPALIVE), "9/0/0/");
        world.run_for(7'000);
    }
    EXPECT_FALSE(lively.peer.ended()) << "expected its time to be that of its own slot";
}

TEST_F(server, keeps_clients_when_the_clock_is_set_by_30_days_or_back) {
    story_app app = gateway.connect();
    world.jump_posix(30 * 24 * 3600);
    world.run_for(20'000);
    EXPECT_FALSE(world.log().has("active socket num:0")) << "expected silence to end a cycle";
    EXPECT_FALSE(app.peer.ended()) << "expected 30 days of silence to be seen as a set clock";
    EXPECT_EQ(app.ask(FRM_KEEPALIVE), "9/0/0/");
    world.jump_posix(-3600);
    world.run_for(200'000);
    EXPECT_FALSE(app.peer.ended()) << "expected negative silence to be no silence";
    world.jump_posix(3600);
    world.run_for(11'000);
    EXPECT_TRUE(app.peer.ended()) << "expected idle clients to be closed as usual";
}

TEST_F(server, closes_a_client_that_left_broke_off_or_sent_urgent_data) {
    story_app closed = gateway.connect();
    story_app reset = gateway.connect();
    story_app sound = gateway.connect();
    story_app urgent = gateway.connect();
    closed.peer.close();
    reset.peer.reset();
    world.run_until_idle();
    for (const int system_error : {0, ECONNRESET}) {
        EXPECT_TRUE(world.log().has(0, " errno:" + std::to_string(system_error)))
            << "expected the errno of the receive that failed, " << system_error;
    }
    urgent.peer.send_urgent();
    world.run_until_idle();
    EXPECT_EQ(world.log().count(2, "find error socket"), 3U);
    world.run_for(11'000);
    EXPECT_EQ(engr_lan_pro_cntl_get_valid_connect_cnt(), 1);
    EXPECT_EQ(world.log().count(5, "time out close socket"), 3U);
    EXPECT_TRUE(urgent.peer.ended());
    EXPECT_EQ(sound.ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer);
    sound.peer.send_urgent();
    world.run_for(11'000);
    EXPECT_TRUE(sound.peer.ended()) << "expected the first client to be looked at, too";
}

TEST_F(server, a_client_that_does_not_read_costs_the_others_one_bounded_wait) {
    story_app deaf = gateway.connect();
    story_app sound = gateway.connect();
    deaf.peer.link().to_peer_bytes_max = 100;
    deaf.peer.stop_reading();
    deaf.send(1, FRM_DEV_LIST);
    world.run_until_idle();
    const uint64_t before = world.now_ms();
    EXPECT_EQ(sound.ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer);
    EXPECT_LE(world.now_ms() - before, 2'100U);
    world.run_for(11'000);
    EXPECT_EQ(engr_lan_pro_cntl_get_valid_connect_cnt(), 1)
        << "expected the client that does not read to be gone";
}

TEST_F(server, listens_again_when_its_sockets_were_closed_or_broke) {
    const struct {
        const char *what;
        void (*harm)(sim::world &);
    } cases[] = {
        {"all sockets closed by the gateway", [](sim::world &) { lpc_close_all_socket(); }},
        {"listening socket broken", [](sim::world &of) { of.break_listener(lan_port); }},
        {"select fails",
         [](sim::world &of) {
             of.fail("kelo_hal_net_select", sim::nth(1));
             of.run_for(10'000);
         }},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        story_app app = gateway.connect();
        one.harm(world);
        EXPECT_TRUE(app.peer.wait_for_end(5'000));
        ASSERT_TRUE(world.run_until([&] { return world.listens(lan_port); }, 5'000));
        EXPECT_EQ(gateway.connect().ask(FRM_DEV_LIST), "241/7/0/" + dev_list_answer);
    }
}

TEST_F(server, checks_the_network_every_1500_ms_before_it_listens_again) {
    ::gateway::set_network_up(false);
    lpc_close_all_socket();
    world.run_for(60'100);
    EXPECT_FALSE(world.listens(lan_port));
    ::gateway::set_network_up(true);
    world.run_for(1'399);
    EXPECT_FALSE(world.listens(lan_port)) << "expected the network to be looked for later";
    world.run_for(1);
    EXPECT_TRUE(world.listens(lan_port)) << "expected 41 pauses of 1500 ms";
}

TEST_F(server, pauses_1500_ms_before_it_starts_over_and_after_a_failed_set_up) {
    lpc_close_all_socket();
    world.fail("kelo_hal_net_bind", sim::nth(1));
    for (const bool is_set_up_failing : {true, false}) {
        world.run_for(1'499);
        EXPECT_FALSE(world.log().has(0, "create server socket err") == is_set_up_failing);
        EXPECT_FALSE(world.listens(lan_port));
        world.run_for(1);
        EXPECT_TRUE(world.log().has(0, "create server socket err"));
        EXPECT_EQ(world.listens(lan_port), !is_set_up_failing);
    }
}

TEST_F(server, logs_the_step_of_set_up_that_failed_and_retries) {
    const struct {
        const char *operation;
        int32_t code;
        const char *log;
    } cases[] = {
        {"kelo_hal_net_socket_create", -1, "Socket creation failed: Port:6668 errno:-199"},
        {"kelo_hal_net_set_bufsize", -6, "Failed to set bufsize on port:6668 errno:-199"},
        {"kelo_hal_net_set_reuse", -2, "Failed to set reuse socket on port:6668 errno:-199"},
        {"kelo_hal_net_bind", -3, "Failed to bind socket on port:6668 errno:-199"},
        {"kelo_hal_net_set_cloexec", -4, "Failed to set cloexec port:6668 errno:-199"},
        {"kelo_hal_net_listen", -5, "Failed to listen on port:6668,errno:-199."},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.operation);
        world.fail(one.operation, sim::nth(1), {.thread = "lpc_task"});
        lpc_close_all_socket();
        EXPECT_TRUE(
            world.run_until([&] { return world.log().has(0, "create server socket err"); }, 5'000));
        EXPECT_TRUE(world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_TRUE(world.run_until_listening(lan_port, 5'000));
        world.log().clear();
        const size_t before = world.in_use().sockets;
        world.fail(one.operation, sim::nth(1));
        EXPECT_EQ(__setup_tcp_serv_socket(7000), one.code);
        EXPECT_EQ(world.in_use().sockets, before) << "expected no socket to be left";
    }
}

TEST_F(server, logs_the_errno_of_the_call_that_failed) {
    const struct {
        const char *operation;
        std::string log;
    } cases[] = {
        {"kelo_hal_net_accept", "net_accept client socket failed -1 (errno: " +
                                    std::to_string(KELO_ERR_TIMED_OUT) + ").errno:"},
        {"kelo_hal_net_select", "Select failed: -1,errno:"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.operation);
        world.fail(one.operation, sim::nth(1), {.error_code = KELO_ERR_TIMED_OUT});
        const story_app app = gateway.connect();
        world.run_for(1'000);
        EXPECT_TRUE(world.log().has(0, one.log + std::to_string(ETIMEDOUT)));
    }
}

TEST_F(server, accepts_descriptor_0_for_the_listening_socket_and_from_1_on_for_a_client) {
    world.fail("kelo_hal_net_socket_create", sim::nth(1), {.result = 0});
    EXPECT_EQ(__setup_tcp_serv_socket(7000), -6) << "expected the buffer of socket 0 to be set";
    world.fail("kelo_hal_net_accept", sim::nth(1), {.result = 0});
    story_app app = gateway.connect();
    EXPECT_TRUE(world.log().has(0, "net_accept client socket failed 0"));
    EXPECT_EQ(app.ask(FRM_KEEPALIVE), "9/0/0/") << "expected the next cycle to accept";
    world.fail("kelo_hal_net_accept", sim::nth(1), {.result = 1});
    const sim::peer second = world.connect(lan_port);
    world.run_until_idle();
    EXPECT_TRUE(world.log().has(4, "new client connect. nums:2 cfd:1 "));
}

TEST_F(server, exact_read_refuses_a_buffer_that_is_absent_or_too_small) {
    uint8_t buffer[4];
    EXPECT_EQ(kelo_net_recv_nd_size(1, nullptr, 4, 4), -1);
    EXPECT_EQ(kelo_net_recv_nd_size(1, buffer, 3, 4), -1);
    EXPECT_EQ(kelo_net_recv_nd_size(1, buffer, UINT32_MAX, 0x80000000), -1)
        << "expected no more than can be told in the result";
    EXPECT_EQ(kelo_net_recv_nd_size(1 << 20, buffer, INT32_MAX, INT32_MAX), -2)
        << "expected an unknown socket to end it at once";
    const uint64_t receives = world.calls("kelo_hal_net_recv");
    EXPECT_EQ(kelo_net_recv_nd_size(1, buffer, 4, 0), 0);
    EXPECT_EQ(world.calls("kelo_hal_net_recv"), receives) << "expected nothing to be read";
}

TEST_F(server, serves_its_clients_while_no_connection_can_be_accepted) {
    story_app app = gateway.connect();
    const sim::fault_id lasting = world.fail("kelo_hal_net_accept", sim::every());
    sim::peer waiting = world.connect(lan_port);
    world.run_for(1'000);
    EXPECT_EQ(world.log().count(0, "net_accept client socket failed"), 11U)
        << "expected a pause of 100 ms after each attempt";
    EXPECT_EQ(app.ask(FRM_KEEPALIVE), "9/0/0/");
    world.clear(lasting);
    EXPECT_EQ(story_app(std::move(waiting)).ask(FRM_KEEPALIVE), "9/0/0/")
        << "expected the connection to be taken later";
}

TEST(server_cycle, ends_with_what_can_not_be_accepted_or_read_and_the_next_one_reads) {
    for (const std::string event : {"connection", "loss", "noise"}) {
        SCOPED_TRACE(event);
        uint64_t seen = 0;
        sim::expect_all_seeds(50, [&](sim::world &world) {
            story_gateway gateway(world);
            gateway.start();
            story_app first = gateway.connect();
            story_app app = gateway.connect();
            world.run_until_idle();
            world.log().clear();
            std::optional<sim::peer> waiting;
            if (event == "connection") {
                world.fail("kelo_hal_net_accept", sim::nth(1));
                waiting.emplace(world.connect(lan_port));
            } else if (event == "loss") {
                first.peer.close();
            } else {
                first.peer.send("noise");
            }
            app.send(1, FRM_KEEPALIVE);
            EXPECT_EQ(app.receive_text(), "9/0/0/");
            if (world.log().has(5, "active socket num:2")) {
                ++seen;
                EXPECT_TRUE(world.log().has(5, "active socket num:1"));
            }
        });
        EXPECT_GT(seen, 0U) << "expected event and frame to come together now and then";
    }
}

} // namespace
