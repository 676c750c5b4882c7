/* Discovery: the broadcast of the agent's own mode, and the AirKiss steps of WeChat mode. */
#include "story_gateway.h"

namespace {

struct discovery : agent_test {
    sim::udp_peer listener = world.open_udp(6667);

    /** Text of the broadcast within one period and a little; "nothing" when none comes. */
    std::string next() {
        const auto datagram = listener.receive(5'100);
        if (!datagram) {
            return "nothing";
        }
        const auto decoded = lan_client::decode_frame(datagram->bytes);
        EXPECT_EQ(decoded.status, lan_client::decode_status::whole);
        EXPECT_EQ(decoded.consumed_bytes, datagram->bytes.size());
        EXPECT_EQ(decoded.decoded.number, 0U);
        EXPECT_EQ(decoded.decoded.type, 19U);
        EXPECT_EQ(decoded.decoded.ret, 0U);
        return lan_client::decrypt(lan_client::discovery_key(), decoded.decoded.payload)
            .value_or("(undecryptable)");
    }
};

TEST_F(discovery, describes_the_gateway_every_5_s) {
    gateway.start();
    const std::string text =
        R"({"ip":"192.168.1.1","gwId":"gw0001","active":0,"ablilty":0,"encrypt":true,)"
        R"("productKey":"pk","version":"1.0","token":true})";
    EXPECT_EQ(next(), text);
    const uint64_t first = world.now_ms();
    EXPECT_EQ(next(), text);
    EXPECT_EQ(world.now_ms() - first, 5'000U);
    EXPECT_EQ(world.log().count(4, "change net env"), 1U);
    EXPECT_EQ(world.log().count(4, "Create UDP Socket To Broadcast"), 1U);
    EXPECT_TRUE(world.log().has(4, "BufToSend " + std::to_string(text.size() - 1) + ":" + text));
    EXPECT_TRUE(world.log().has(4, "send len:"));
}

TEST_F(discovery, follows_the_gateway_record_and_its_address) {
    gateway.start();
    const struct {
        const char *field;
        const char *value;
        const char *expected;
    } cases[] = {
        {"gw_id", "g", R"("gwId":"g")"},       {"gw_id", "", R"("gwId":"alt1")"},
        {"active_stat", "1", R"("active":0)"}, {"active_stat", "2", R"("active":2)"},
        {"ability", "7", R"("ablilty":7)"},    {"product_key", "", R"("productKey":"")"},
    };
    ::gateway::set_gateway_field("alt_gw_id", "alt1");
    for (const auto &one : cases) {
        ::gateway::set_gateway_field(one.field, one.value);
        EXPECT_NE(next().find(one.expected), std::string::npos)
            << one.field << ": expected " << one.expected;
    }
    ::gateway::set_wifi_config_needed(true);
    EXPECT_NE(next().find(R"("token":true,"wf_cfg":true})"), std::string::npos);
    world.log().clear();
    ::gateway::set_address("192.168.1.77");
    EXPECT_NE(next().find(R"({"ip":"192.168.1.77")"), std::string::npos);
    EXPECT_TRUE(world.log().has(4, "change net env") &&
                world.log().has(4, "Create UDP Socket To Broadcast"));
}

TEST_F(discovery, sends_nothing_without_network_with_ten_clients_or_with_too_long_a_text) {
    gateway.start();
    ::gateway::set_network_up(false);
    world.log().clear();
    EXPECT_EQ(next(), "nothing");
    EXPECT_EQ(world.log().count("Udp"), 0U);
    ::gateway::set_network_up(true);
    std::vector<story_app> apps;
    for (int i = 0; i < 10; ++i) {
        apps.push_back(gateway.connect());
    }
    EXPECT_EQ(next(), "nothing");
    EXPECT_TRUE(world.log().has(4, "socket Num Too Many,Cannot Send Udp Broadcast"));
    apps[3].peer.reset();
    world.run_until_idle();
    EXPECT_NE(next(), "nothing") << "expected a faulty client not to count";
    // A text of 255 bytes has a ciphertext of 256, the size of the buffer.
    ::gateway::set_gateway_field("disc_version", std::string(30, 'v'));
    ::gateway::set_gateway_field("product_key", std::string(109, 'k'));
    EXPECT_EQ(next().size(), 255U);
    ::gateway::set_gateway_field("product_key", std::string(110, 'k'));
    EXPECT_EQ(next(), "nothing");
    EXPECT_TRUE(world.log().has(0, "discovery text does not fit into 256 bytes, nothing sent"));
}

TEST_F(discovery, a_failing_step_is_logged_and_ends_that_tick_only) {
    gateway.start();
    ASSERT_NE(next(), "nothing");
    const std::string send = "send";
    const struct {
        const char *what;
        const char *operation;
        uint64_t n;
        const char *log;
    } cases[] = {
        {"text buffer", "Malloc", 1, "Malloc Fails"},
        {"cipher", "Malloc", 2, "aes128_ecb_encode error:-3"},
        {"frame", "Malloc", 3, "mlp_gw_send_da error"},
        {"send", "kelo_hal_net_send_to", 1, "errno:-199 port:6667"},
        {"socket", "kelo_hal_net_socket_create", 1, "create socket err"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        const uint64_t sends = world.calls("kelo_hal_net_send_to");
        world.fail(one.operation, sim::nth(one.n));
        EXPECT_EQ(next(), "nothing");
        EXPECT_TRUE(world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_EQ(world.calls("kelo_hal_net_send_to"), sends + (one.what == send ? 1 : 0));
        if (one.what != send) { // a failed send has dropped the socket: the next case needs that
            EXPECT_NE(next(), "nothing") << "expected the next tick to work";
        }
    }
    EXPECT_TRUE(world.log().has(0, "sendto Failed,len:156 ret:-1,errno:-199 port:6667"));
    world.fail("kelo_hal_net_send_to", sim::nth(1));
    EXPECT_EQ(next(), "nothing");
    world.log().clear();
    const uint64_t closes = world.calls("kelo_hal_net_close");
    world.fail("kelo_hal_net_socket_create", sim::nth(1), {.result = 0});
    EXPECT_EQ(next(), "nothing");
    EXPECT_TRUE(world.log().has(0, "sendto Failed")) << "expected descriptor 0 to be used";
    EXPECT_EQ(world.calls("kelo_hal_net_close"), closes + 1) << "expected it to be closed, too";
    EXPECT_NE(next(), "nothing");
    world.log().clear();
    world.fail("kelo_hal_net_send_to", sim::nth(1), {.result = 0});
    EXPECT_EQ(next(), "nothing");
    EXPECT_TRUE(world.log().has(4, "send len:156")) << "expected only less than 0 to be a failure";
    EXPECT_FALSE(world.log().has(0, "sendto Failed"));
    ::gateway::set_service_fault("wf_get_ip", -1);
    EXPECT_EQ(next(), "nothing");
    EXPECT_TRUE(world.log().has(0, "Get IP Fails"));
}

using airkiss = agent_test;

TEST_F(airkiss, takes_the_step_that_fits_the_state_and_initialises_the_packet_once) {
    ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_WECHAT), 0);
    ::gateway::set_gateway_field("ak_random", "77");
    const struct {
        const char *what;
        uint8_t status;
        int32_t active;
        const char *fault; // service that returns -9, null for none
        std::vector<std::string> calls;
        const char *log;
    } cases[] = {
        {"status unknown", 4, 1, "get_wf_gw_nw_status", {}, "get_wf_gw_nw_status error:-9"},
        {"station not connected", 5, 1, nullptr, {}, "the station do't connect ap,status:5"},
        {"configuration finished", 6, 0, nullptr, {"ak_lan_nwc_fin_inform"}, "Send Random 77"},
        {"phone can't be informed",
         7,
         0,
         "ak_lan_nwc_fin_inform",
         {"ak_lan_nwc_fin_inform"},
         "ak_lan_nwc_fin_inform error:-9"},
        {"packet not initialised", 4, 1, "ak_lan_disc_init", {"ak_lan_disc_init"}, "-9"},
        {"first packet",
         4,
         1,
         nullptr,
         {"ak_lan_disc_init", "ak_lan_disc_pack_send"},
         "Send airkiss discover"},
        {"later packet", 4, 1, nullptr, {"ak_lan_disc_pack_send"}, "Send airkiss discover"},
        {"packet not sent",
         4,
         1,
         "ak_lan_disc_pack_send",
         {"ak_lan_disc_pack_send"},
         "ak_lan_disc_pack_send error:-9"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        ::gateway::set_airkiss(one.status, one.active);
        if (one.fault != nullptr) {
            ::gateway::set_service_fault(one.fault, -9);
        }
        gateway.trace.clear();
        world.log().clear();
        world.run_for(5'000);
        std::vector<std::string> calls;
        for (const std::string &line : gateway.trace) {
            if (line.find("ak_lan_") != std::string::npos &&
                line.find("rev_active") == std::string::npos) {
                calls.push_back(line.substr(10, line.find('"', 10) - 10));
            }
        }
        EXPECT_EQ(calls, one.calls);
        EXPECT_TRUE(world.log().has(one.log)) << "expected: " << one.log;
        EXPECT_EQ(world.log().has(0, "error:"), one.fault != nullptr);
        if (one.fault != nullptr) {
            ::gateway::set_service_fault(one.fault, std::nullopt);
        }
    }
}

} // namespace
