/* The access-point configuration: datagrams, start and stop, and the report of a failure. */
#include "gateway_services/scenario.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

#include <functional>

namespace {

constexpr uint16_t config_port = 6669;

/** What finish_cb got and does. */
struct recorded_finish {
    std::vector<std::string> got;
    int result = 0;
    std::function<void()> act;
} finish;

int take_credentials(const char *ssid, const char *passwd, const char *token) {
    finish.got.push_back(std::string(ssid) + "/" + (passwd != nullptr ? passwd : "(none)") + "/" +
                         token);
    if (finish.act) {
        finish.act();
    }
    return finish.result;
}

std::string plain(std::string_view json) {
    return lan_client::encode_request(0, FRM_AP_NW_CFG, json);
}

std::string secret(std::string_view json) {
    return lan_client::encode_request(0, FRM_UDP_WIFI_ERR,
                                      lan_client::encrypt(lan_client::configuration_key(), json));
}

const std::string good = R"({"ssid":"s","passwd":"p","token":"t"})";

struct ap_config : agent_test {
    ap_config() { finish = {}; }
    ~ap_config() override { engr_lan_ap_nw_cfg_stop(); }

    void start() {
        ASSERT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), 0);
        world.run_until_idle();
    }

    sim::udp_peer app = world.open_udp(0);
};

TEST_F(ap_config, passes_on_valid_credentials_and_drops_all_other_datagrams) {
    start();
    finish.result = 5;
    const std::string filled = R"({"ssid":"s","token":"t","fill":")";
    const auto sized = [&](size_t size) {
        return plain(filled + std::string(size - 24 - filled.size() - 2, 'x') + "\"}");
    };
    std::string short_length = plain(good);
    short_length[15] = 7;
    std::string long_length = plain(good);
    long_length[15] = static_cast<char>(long_length[15] + 1);
    std::string bad_tail = plain(good);
    bad_tail.back() = 0;
    std::string too_big = plain(good);
    too_big[15] = static_cast<char>(241);
    std::string huge = plain(good);
    huge[12] = static_cast<char>(0xFF);
    std::string damaged = secret(good);
    damaged[damaged.size() - 9] = static_cast<char>(damaged[damaged.size() - 9] + 1);
    const struct {
        const char *what;
        std::string datagram;
        const char *got;
        const char *log;
    } cases[] = {
        {"plain", plain(good), "s/p/t", "Send Parsed result error:5"},
        {"encrypted", secret(good), "s/p/t", "Parse passwd:p"},
        {"no password", plain(R"({"ssid":"s","token":"t"})"), "s/(none)/t", "Parse ssid:s token:t"},
        {"empty password", secret(R"({"ssid":"s","passwd":"","token":"t"})"), "s/(none)/t",
         "Parse ssid:s token:t"},
        {"password of another type", plain(R"({"ssid":"s","passwd":7,"token":"t"})"), "s/(none)/t",
         "Parse ssid:s"},
        {"256 bytes", sized(256), "s/(none)/t", "Parse ssid:s"},
        {"257 bytes", sized(257), nullptr, "Frame is Too Big To Recv"},
        {"bytes behind the frame", plain(good) + "more", "s/p/t", "Parse ssid:s"},
        {"head is not looked at", "\x12" + plain(good).substr(1), "s/p/t", "Parse ssid:s"},
        {"1 byte", "x", nullptr, "Rev Data Too short 1 24"},
        {"23 bytes", std::string(23, 'x'), nullptr, "Rev Data Too short 23 24"},
        {"length beyond 256", too_big, nullptr, "Frame is Too Big To Recv"},
        {"length beyond 32 bits", huge, nullptr, "Frame is Too Big To Recv"},
        {"length beyond the datagram", long_length, nullptr, "frame of length"},
        {"length below its trailer", short_length, nullptr, "frame of length 7"},
        {"tail", bad_tail, nullptr, "check tail fails:0xaa00"},
        {"type", lan_client::encode_request(0, 2, good), nullptr, "Frame Type Cannot Parse:2"},
        {"plain, marked as encrypted", lan_client::encode_request(0, FRM_UDP_WIFI_ERR, good),
         nullptr, "aes128_ecb_decode error"},
        {"encrypted, damaged", damaged, nullptr, "aes128_ecb_decode error"},
        {"empty", plain(""), nullptr, "kl_cJSON_Parse error:"},
        {"not JSON", plain("{ssid}"), nullptr, "kl_cJSON_Parse error:{ssid}"},
        {"no ssid", plain(R"({"token":"t"})"), nullptr, "data format error:"},
        {"no token", secret(R"({"ssid":"s"})"), nullptr, "data format error:"},
        {"ssid of another type", plain(R"({"ssid":1,"token":"t"})"), nullptr, "data format error:"},
        {"token of another type", plain(R"({"ssid":"s","token":null})"), nullptr,
         "data format error:"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        finish.got.clear();
        world.log().clear();
        app.send(config_port, one.datagram);
        world.run_for(10);
        EXPECT_EQ(finish.got.empty() ? "" : finish.got.front(), one.got != nullptr ? one.got : "");
        EXPECT_TRUE(world.log().has(one.log)) << "expected: " << one.log;
    }
    EXPECT_FALSE(app.receive(100)) << "expected no datagram to be answered";
}

TEST_F(ap_config, listens_until_accepted_and_again_after_a_stop) {
    EXPECT_EQ(engr_lan_ap_nw_cfg_start(nullptr), -3);
    engr_lan_ap_nw_cfg_stop();
    EXPECT_TRUE(world.log().has(1, "ap cfg is NULL"));
    start();
    EXPECT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), 0);
    EXPECT_TRUE(world.log().has(1, "ap cfg is inited before"));
    finish.result = 1;
    app.send(config_port, plain(good));
    world.run_for(10);
    finish.result = 0;
    app.send(config_port, secret(good));
    world.run_for(10);
    EXPECT_TRUE(world.log().has(4, "End While. Finish AP IN UDP Listen"));
    app.send(config_port, plain(good));
    world.run_for(10);
    EXPECT_EQ(finish.got.size(), 2U) << "expected the listener to continue after a refusal only";
    EXPECT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), 0)
        << "expected a finished listener to be left alone";
    engr_lan_ap_nw_cfg_stop();
    EXPECT_TRUE(world.log().has(4, "Delete thread"));
    start();
    app.send(config_port, plain(good));
    world.run_for(10);
    app.send(config_port, plain(good));
    world.run_for(10);
    EXPECT_EQ(finish.got.size(), 3U) << "expected one accepted configuration to be enough";
    EXPECT_FALSE(world.log().has("start thread fails"));
    EXPECT_FALSE(world.log().has("DeleteThrdHandle error"));
    engr_lan_ap_nw_cfg_stop();
    finish.act = [&] {
        world.run_for(2);
        EXPECT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), -1)
            << "expected no start inside of a stop by another thread";
    };
    start();
    app.send(config_port, plain(good));
    world.run_for(1);
    engr_lan_ap_nw_cfg_stop();
    EXPECT_EQ(finish.got.size(), 4U);
}

TEST_F(ap_config, tries_again_a_second_after_a_receive_error_or_an_empty_datagram) {
    for (const int32_t received : {-1, 0}) {
        world.fail("kelo_hal_net_recvfrom", sim::nth(1), {.result = received});
        start();
        EXPECT_TRUE(world.log().has(0, "udp_ap_v3 recvfrom error:"));
        EXPECT_EQ(world.log().count(0, ""), 1U) << "expected nothing to be read then";
        world.log().clear();
        app.send(config_port, plain(good));
        world.run_for(999);
        EXPECT_TRUE(finish.got.empty());
        world.run_for(1);
        EXPECT_EQ(finish.got.size(), 1U);
        finish.got.clear();
        engr_lan_ap_nw_cfg_stop();
    }
}

TEST_F(ap_config, a_start_that_fails_leaves_nothing_behind) {
    const struct {
        const char *operation;
        int32_t code;
        const char *log;
    } cases[] = {
        {"Malloc", -3, "Malloc lan_ap_nw_cfg Fails"},
        {"kelo_hal_net_socket_create", -1, "unw_socket_create udp errno:-199"},
        {"kelo_hal_net_set_reuse", -1, "Failed to set reuse socket errno:-199"},
        {"kelo_hal_net_bind", -1, "unw_bind 6669 errno:-199"},
        {"kelo_hal_net_set_cloexec", -1, "Failed to set cloexec errno:-199"},
        {"CreateAndStart", -7, "start thread fails -7"},
    };
    for (const auto &one : cases) {
        const sim::resources before = world.in_use();
        world.fail(one.operation, sim::nth(1), {.result = one.code == -7 ? -7 : -1});
        EXPECT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), one.code) << one.operation;
        EXPECT_TRUE(world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_TRUE(world.in_use() == before) << one.operation << ": expected nothing to be left";
    }
    const uint64_t closes = world.calls("kelo_hal_net_close");
    world.fail("kelo_hal_net_socket_create", sim::nth(1), {.result = 0});
    EXPECT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), -1);
    EXPECT_EQ(world.calls("kelo_hal_net_close"), closes + 1)
        << "expected a socket with descriptor 0 to be closed, too";
    EXPECT_EQ(world.log().count(0, "unw_socket_create udp errno"), 1U);
    start();
}

TEST(ap_config_races, start_and_stop_work_from_everywhere) {
    sim::expect_all_seeds(500, [](sim::world &world) {
        finish = {};
        finish.result = 1;
        variants chance(world);
        const bool stops_inside = !chance.one_in(3);
        const bool starts_inside = stops_inside && chance.one_in(2);
        const uint64_t pause_ms = chance.below(2);
        finish.act = [=] {
            if (stops_inside) {
                engr_lan_ap_nw_cfg_stop();
            }
            if (starts_inside) {
                engr_lan_ap_nw_cfg_start(take_credentials);
            }
        };
        sim::udp_peer app = world.open_udp(0);
        ASSERT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), 0);
        auto sender = world.spawn("sender", [&] {
            for (int i = 0; i < 3; ++i) {
                app.send(config_port, plain(good));
                world.run_for(pause_ms);
            }
        });
        auto stopper = world.spawn("stopper", [] { engr_lan_ap_nw_cfg_stop(); });
        auto starter = world.spawn("starter", [] { engr_lan_ap_nw_cfg_start(take_credentials); });
        sender.join();
        stopper.join();
        starter.join();
        world.run_for(5'000);
        engr_lan_ap_nw_cfg_stop();
        world.run_for(10);
        const size_t so_far = finish.got.size();
        app.send(config_port, plain(good));
        world.run_for(5'000);
        EXPECT_EQ(finish.got.size(), so_far) << "expected a stopped listener to receive nothing";
    });
}

TEST_F(ap_config, reports_a_failure_once_and_shuts_the_access_point_down) {
    sim::udp_peer listener = world.open_udp(6670);
    ::gateway::set_gateway_field("wf_ssid", "net");
    ::gateway::set_gateway_field("wf_passwd", "pw");
    const std::string desc = "wrong \"key\"" + std::string(96, '.');
    const auto report = [&] {
        gateway.trace.clear();
        auto first =
            world.spawn("first", [&] { engr_lan_ap_nw_cfg_error_report(desc.c_str(), 3); });
        auto second =
            world.spawn("second", [&] { engr_lan_ap_nw_cfg_error_report(desc.c_str(), 4); });
        first.join();
        second.join();
    };
    report();
    EXPECT_TRUE(gateway.trace.empty()) << "expected nothing while no configuration is under way";
    ::gateway::set_gateway_field("nw_cfg_stat", "1");
    ::gateway::set_wifi_mode(2);
    report();
    EXPECT_FALSE(listener.receive(100)) << "expected nothing without an access point";
    ::gateway::set_wifi_mode(4);
    const uint64_t before = world.now_ms();
    report();
    EXPECT_EQ(world.now_ms() - before, 40U);
    for (int i = 0; i < 4; ++i) {
        const auto datagram = listener.receive(0);
        ASSERT_TRUE(datagram) << "expected four copies";
        const auto frame = lan_client::decode_frame(datagram->bytes).decoded;
        EXPECT_EQ(frame.type, 20U);
        EXPECT_EQ(frame.number + frame.ret, 0U);
        EXPECT_TRUE(frame.crc_matches);
        const auto text =
            lan_client::decrypt(lan_client::configuration_key(), frame.payload).value_or("?");
        EXPECT_TRUE(text == R"({"result":3,"desc":")" + desc ||
                    text == R"({"result":4,"desc":")" + desc)
            << "expected the text cut at 127 characters: " << text;
    }
    EXPECT_FALSE(listener.receive(100)) << "expected one report of two threads";
    EXPECT_EQ(gateway.trace.size(), 4U)
        << "expected two questions for the mode, ap_stop and station_connect";
    EXPECT_NE(gateway.trace.back().find(
                  R"("wf_station_connect", "args": {"ssid": "net", "password": "***"})"),
              std::string::npos)
        << gateway.trace.back();
    report();
    EXPECT_FALSE(listener.receive(100)) << "expected no second report in the life of the process";
}

} // namespace
