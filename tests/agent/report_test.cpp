/* Reports to every connected app, and the send path under them. */
#include "story_gateway.h"
#include "transport/frame_types.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {

using report = agent_test;

int32_t queue(const std::string &text) {
    const std::string block = std::string(8, '\0') + text + '\0';
    return engr_lan_dp_sata_report(reinterpret_cast<const lan_dp_report_t *>(block.data()),
                                   static_cast<uint32_t>(block.size()));
}

TEST_F(report, without_a_client_is_refused_and_nothing_is_queued) {
    for (const bool started : {false, true}) {
        if (started) {
            gateway.start();
        }
        EXPECT_EQ(engr_lan_data_report_cb(FRM_DP_REPORT, 0, "x", 1), -940);
        EXPECT_EQ(queue("{}"), -940);
        EXPECT_EQ(engr_lan_sub_dev_bind_report("a", "p"), -940);
        EXPECT_EQ(engr_lan_sub_dev_unbind_report("a"), -940);
        EXPECT_EQ(engr_lan_gw_unactive_report(), -940);
    }
    EXPECT_TRUE(world.log().has(0, "lan no client"));
    EXPECT_TRUE(world.log().has(5, "lan socket num is 0. skip send"));
    EXPECT_EQ(world.calls("cmmod_post_msg"), 0U);
}

TEST_F(report, texts_are_cut_at_127_characters) {
    gateway.start();
    story_app app = gateway.connect();
    EXPECT_EQ(engr_lan_sub_dev_bind_report(nullptr, "p"), -2);
    EXPECT_EQ(engr_lan_sub_dev_bind_report("a", nullptr), -2);
    EXPECT_EQ(engr_lan_sub_dev_unbind_report(nullptr), -2);
    EXPECT_EQ(app.receive_text(100), "nothing");
    EXPECT_EQ(engr_lan_sub_dev_bind_report("a", "p"), 0);
    EXPECT_EQ(app.receive_text(), R"(243/0/0/{"products":[{"cid":"a","pid":"p"}]})");
    EXPECT_EQ(engr_lan_sub_dev_unbind_report("a"), 0);
    EXPECT_EQ(app.receive_text(), R"(228/0/0/{"cid":"a"})");
    EXPECT_EQ(engr_lan_gw_unactive_report(), 0);
    EXPECT_EQ(app.receive_text(), R"(227/0/0/{"cid":"gw0001"})");
    const std::string longest_id(DEV_ID_SIZE - 1, 'g');
    ::gateway::set_gateway_field("gw_id", longest_id);
    EXPECT_EQ(engr_lan_gw_unactive_report(), 0);
    EXPECT_EQ(app.receive_text(), R"(227/0/0/{"cid":")" + longest_id + R"("})");
    std::memset(engr_get_gw_cntl()->gw_id, 'g', DEV_ID_SIZE);
    EXPECT_EQ(engr_lan_gw_unactive_report(), 0);
    EXPECT_EQ(app.receive_text(), R"(227/0/0/{"cid":")" + longest_id + R"("})")
        << "expected an id without its NUL to be cut";
    EXPECT_EQ(engr_lan_sub_dev_unbind_report(std::string(200, 'c').c_str()), 0);
    EXPECT_EQ(app.receive_text(), R"(228/0/0/{"cid":")" + std::string(119, 'c'));
    EXPECT_EQ(engr_lan_data_report_cb(232, 3, "{}", 2), 0);
    EXPECT_EQ(app.receive_text(), "232/0/3/{}");
    EXPECT_EQ(engr_rpt_upload_upgrade_percent(98, "a", 0), 0);
    EXPECT_EQ(app.receive_text(), R"(232/0/0/{"firmwareType":0, "cid":"a", "progress":98})");
}

TEST_F(report, is_encrypted_from_its_first_byte_on_and_empty_without_one) {
    gateway.start();
    story_app app = gateway.connect();
    const struct {
        uint32_t length;
        size_t payload_bytes;
    } cases[] = {{0, 0}, {1, 16}, {16, 32}};
    for (const auto &one : cases) {
        EXPECT_EQ(engr_lan_data_report_cb(FRM_DP_REPORT, 0, "sixteen letters.", one.length), 0);
        const auto frame = app.receive();
        EXPECT_EQ(frame ? frame->payload.size() : 999, one.payload_bytes) << one.length;
    }
}

TEST_F(report, reaches_the_clients_before_and_after_a_faulty_one) {
    gateway.start();
    story_app first = gateway.connect();
    story_app second = gateway.connect();
    story_app third = gateway.connect();
    world.fail("kelo_hal_net_send", sim::nth(2));
    EXPECT_EQ(engr_lan_sub_dev_unbind_report("a"), 0);
    EXPECT_EQ(queue(R"({"cid":"lamp","dps":{"1":true}})"), 0);
    for (story_app *app : {&first, &third}) {
        EXPECT_EQ(app->receive_text(), R"(228/0/0/{"cid":"a"})");
        EXPECT_EQ(app->receive_text(), R"(8/0/0/{"cid":"lamp","dps":{"1":true}})")
            << "expected the packed bytes as they are";
    }
    EXPECT_EQ(world.log().count(0, "__mlp_gw_tcp_send op_ret:-909"), 1U);
    EXPECT_EQ(world.log().count(0, "__mlp_gw_tcp_send op_ret:-925"), 1U);
    EXPECT_EQ(second.receive_text(100), "nothing");
    EXPECT_EQ(world.log().count(4, "send length:"), 3U) << "expected none for plain bytes";
}

TEST_F(report, is_dropped_without_a_leak_when_its_clients_left_or_packing_fails) {
    gateway.start();
    {
        story_app app = gateway.connect();
        ::gateway::set_service_fault("engr_pack_data_with_cmd", -6);
        EXPECT_EQ(queue("{}"), 0);
        world.run_until_idle();
        EXPECT_TRUE(world.log().has(0, "pack_data_with_cmd error:-6"));
        EXPECT_EQ(app.receive_text(100), "nothing");
        ::gateway::set_service_fault("engr_pack_data_with_cmd", std::nullopt);
        EXPECT_EQ(queue("{}"), 0);
        lpc_close_all_socket();
    }
    gateway.trace.clear();
    world.run_until_idle();
    EXPECT_TRUE(gateway.trace.empty()) << "expected nothing to be packed for nobody";
    EXPECT_EQ(engr_lan_dp_sata_report(nullptr, 9), -940);
    world.run_until_listening(lan_port);
    story_app app = gateway.connect();
    EXPECT_EQ(engr_lan_dp_sata_report(nullptr, 9), -2);
    const lan_dp_report_t smallest{};
    EXPECT_EQ(engr_lan_dp_sata_report(&smallest, sizeof smallest - 1), -2);
    EXPECT_EQ(engr_lan_dp_sata_report(&smallest, sizeof smallest), 0);
    gateway.trace.clear();
    world.run_until_idle();
    EXPECT_THAT(gateway.trace, testing::Contains(testing::HasSubstr(
                                   R"({"mode": 0, "text": "", "flags": 0, "pack_arg": 0})")));
    world.fail("cmmod_post_msg", sim::nth(1), {.result = -44});
    EXPECT_EQ(queue("{}"), -44);
}

TEST_F(report, a_failed_or_short_write_marks_the_client_and_the_next_send_writes_nothing) {
    gateway.start();
    for (const int64_t partial : {int64_t{-1}, int64_t{5}}) {
        story_app app = gateway.connect();
        world.fail("kelo_hal_net_send", sim::nth(1), {.result = 0, .partial_bytes = partial});
        EXPECT_EQ(engr_lan_sub_dev_unbind_report("a"), 0);
        EXPECT_TRUE(world.log().has(0, "__mlp_gw_tcp_send op_ret:-909"));
        const uint64_t sends = world.calls("kelo_hal_net_send");
        EXPECT_EQ(engr_lan_sub_dev_unbind_report("a"), 0);
        EXPECT_EQ(world.calls("kelo_hal_net_send"), sends)
            << "expected no write to a faulty client";
        EXPECT_EQ(world.log().count(0, " is fault"), 1U)
            << "expected the refused send to be logged";
        EXPECT_TRUE(app.peer.wait_for_end(11'000));
        world.log().clear();
    }
}

TEST_F(report, that_can_not_be_encrypted_is_not_sent_and_does_not_mark_the_client) {
    gateway.start();
    story_app app = gateway.connect();
    const struct {
        const char *what;
        uint64_t n; // the allocation that fails
        const char *log;
    } cases[] = {{"cipher", 1, "__mlp_gw_tcp_send op_ret:-3"},
                 {"frame", 2, "__mlp_gw_tcp_send op_ret:-1"}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        const uint64_t sends = world.calls("kelo_hal_net_send");
        world.fail("Malloc", sim::nth(one.n), {.thread = "main"});
        EXPECT_EQ(engr_lan_sub_dev_unbind_report("a"), 0);
        EXPECT_TRUE(world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_EQ(world.calls("kelo_hal_net_send"), sends) << "expected nothing to be written";
        EXPECT_EQ(engr_lan_pro_cntl_get_valid_connect_cnt(), 1);
        EXPECT_EQ(engr_lan_sub_dev_unbind_report("b"), 0);
        EXPECT_EQ(app.receive_text(), R"(228/0/0/{"cid":"b"})");
    }
    EXPECT_EQ(world.log().count(0, "aes128_ecb_encode error"), 2U);
    EXPECT_TRUE(world.log().has(0, "aes128_ecb_encode error:-3"));
    EXPECT_TRUE(world.log().has(0, "Create Send Buf Fails"));
}

TEST_F(report, releases_the_queued_message_before_it_waits_for_a_client) {
    gateway.start();
    story_app app = gateway.connect();
    app.peer.link().to_peer_bytes_max = 10;
    app.peer.stop_reading();
    EXPECT_EQ(queue(R"({"cid":"lamp","dps":{"1":true}})"), 0);
    world.run_for(500);
    EXPECT_FALSE(world.log().has(0, "__mlp_gw_tcp_send op_ret:")) << "expected the send to wait";
    EXPECT_EQ(world.in_use().message_blocks, 0U);
}

TEST_F(report, reaches_a_slow_reader_whole) {
    gateway.start();
    story_app app = gateway.connect();
    app.peer.link().to_peer_bytes_max = 64;
    app.peer.read_slowly(64, 100);
    const std::string text = R"({"note":")" + std::string(1000, 'n') + R"("})";
    EXPECT_EQ(
        engr_lan_data_report_cb(FRM_DP_REPORT, 0, text.data(), static_cast<uint32_t>(text.size())),
        0);
    app.peer.resume_reading();
    EXPECT_EQ(app.receive_text(), "8/0/0/" + text);
}

} // namespace
