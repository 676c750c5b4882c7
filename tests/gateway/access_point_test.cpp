// A gateway in access-point mode gets its network, or says that it cannot join it.
#include "story_gateway.h"

#include "lan_client/frame_types.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

constexpr uint16_t credentials_port = 6669;
constexpr uint16_t failure_port = 6670;
constexpr uint16_t discovery_port = 6667;

struct access_point : agent_test {
    access_point() {
        gateway.start();
        EXPECT_EQ(::gateway::open_access_point(), 0);
        world.run_until_idle();
    }

    void send(const std::string &json) {
        app.send(credentials_port,
                 lan_client::encode_request(0, lan_client::frame_type::ap_nw_cfg, json));
        world.run_until_idle();
    }
    /** Text of the next datagram. */
    static std::string heard(sim::udp_peer &listener, const lan_client::aes_key &key) {
        const auto datagram = listener.receive(6000);
        if (!datagram) {
            return "nothing";
        }
        return lan_client::decrypt(key, lan_client::decode_frame(datagram->bytes).decoded.payload)
            .value_or("(undecryptable)");
    }
    std::string announcement() {
        sim::udp_peer listener = world.open_udp(discovery_port);
        return heard(listener, lan_client::discovery_key());
    }
    /** Wi-Fi mode, network of the station and of the record, and state of the configuration. */
    static std::string state() {
        const nlohmann::ordered_json all = ::gateway::status();
        return all["wifi"]["mode"].dump() + " '" + all["wifi"]["ssid"].get<std::string>() + "' '" +
               all["gateway"]["wf_ssid"].get<std::string>() + "' " +
               all["gateway"]["nw_cfg_stat"].dump() + " " + all["token_bound"].dump();
    }
    /** The services of the story that were called, in order. */
    std::string calls() {
        std::string names;
        for (const std::string &line : gateway.trace) {
            const std::string name = nlohmann::json::parse(line)["call"];
            if (name == "finish_cb" || name.starts_with("wf_")) {
                names += name + " ";
            }
        }
        return names;
    }

    sim::udp_peer app = world.open_udp();
};

TEST_F(access_point, takes_the_credentials_joins_the_network_and_is_found_there) {
    EXPECT_EQ(state(), "4 '' '' 1 false");
    EXPECT_THAT(announcement(), testing::HasSubstr(R"("wf_cfg":true)"));
    const char *const refused[] = {
        R"({"ssid": "", "token": "t"})",
        R"({"ssid": "0123456789012345678901234567890123", "token": "t"})",
        R"({"ssid": "net", "token": ""})",
        R"({"ssid": "net\n", "token": "t"})",
    };
    for (const char *credentials : refused) {
        send(credentials);
        EXPECT_EQ(state(), "4 '' '' 1 false") << credentials;
    }
    gateway.trace.clear();
    send(R"({"ssid": "net", "passwd": "secret", "token": "t"})");
    EXPECT_EQ(state(), "1 'net' 'net' 0 true");
    EXPECT_STREQ(engr_get_gw_cntl()->wf_passwd, "secret");
    EXPECT_EQ(calls(), "finish_cb wf_station_connect wf_ap_stop ");
    EXPECT_EQ(announcement().find("wf_cfg"), std::string::npos);
}

TEST_F(access_point, tells_a_failure_and_comes_back_for_another_try) {
    sim::udp_peer listener = world.open_udp(failure_port);
    ::gateway::set_service_fault("wf_station_connect", -5);
    gateway.trace.clear();
    send(R"({"ssid": "net", "token": "t"})");
    EXPECT_EQ(heard(listener, lan_client::configuration_key()),
              R"({"result":-5,"desc":"the Wi-Fi network cannot be joined"})");
    world.run_for(1000);
    EXPECT_EQ(state(), "1 '' 'net' 1 true") << "the access point is down, the station tries";
    EXPECT_EQ(calls(),
              "finish_cb wf_station_connect wf_wk_mode_get wf_ap_stop wf_station_connect ");
    world.run_for(5000);
    EXPECT_EQ(state(), "4 '' 'net' 1 true");
    ::gateway::set_service_fault("wf_station_connect", std::nullopt);
    send(R"({"ssid": "other", "token": "t"})");
    EXPECT_EQ(state(), "1 'other' 'other' 0 true");
}

TEST_F(access_point, comes_back_although_its_listener_cannot_be_had_at_first) {
    ::gateway::set_service_fault("wf_station_connect", -5);
    send(R"({"ssid": "net", "token": "t"})");
    world.run_for(1000);
    world.fail("CreateAndStart", sim::nth(1));
    world.run_for(5000);
    EXPECT_TRUE(world.log().has(0, "cannot listen for credentials, will try again"));
    world.run_for(5000);
    ::gateway::set_service_fault("wf_station_connect", std::nullopt);
    send(R"({"ssid": "other", "token": "t"})");
    EXPECT_EQ(state(), "1 'other' 'other' 0 true");
}

TEST_F(access_point, ends_with_the_gateway_while_a_network_is_joined) {
    ::gateway::set_service_fault("wf_station_connect", -5);
    send(R"({"ssid": "net", "token": "t"})");
    world.run_for(2000);
    send(R"({"ssid": "net", "token": "t"})");
}

} // namespace
