// The services on the simulated port: one at a time, as the agent calls them.
#include "engr_lan_agent.h"
#include "gateway/device.h"
#include "gateway/gateway.h"
#include "gateway/scene.h"
#include "gateway_services/error.h"
#include "gateway_services/host.h"
#include "gateway_services/operate.h"
#include "platform/airkiss.h"
#include "platform/memory.h"
#include "platform/network.h"
#include "platform/wifi.h"
#include "sim/testing.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <memory>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/** A gateway with two devices in a simulated world. */
struct services : sim::test {
    services() {
        gateway::open_options options;
        options.initial_site =
            gateway::parse_site(R"({"gateway": {"gw_id": "gw1", "local_key": "0123456789abcdef"},
            "devices": [{"dev_id": "a", "pid": "p", "online": 1, "dps": {"1": true}},
                        {"dev_id": "b"}]})",
                                "site");
        options.faults = gateway::parse_scenario(R"({"services": {"wf_ap_stop": -7}})", "scenario");
        options.trace = [this](std::string_view line) { trace.emplace_back(line); };
        options.address = [] { return std::string("192.168.1.1"); };
        gateway::open(std::move(options));
    }
    ~services() override { gateway::close(); }

    std::vector<std::string> trace;
};

TEST_F(services, leave_one_line_each_with_their_arguments_in_order) {
    engr_set_gw_ext_stat(3);
    engr_get_dev_cntl("b");
    engr_get_dev_cntl("no\"\xFFne");
    engr_get_gw_dev_cntl();
    wf_station_connect("net", nullptr);
    wf_ap_stop();
    gw_addr_t address{};
    wf_get_ip(WF_STATION, &address); // asked all the time and so not traced
    engr_get_gw_cntl();
    EXPECT_STREQ(address.ip, "192.168.1.1");
    EXPECT_THAT(
        trace,
        ElementsAre(R"({"call": "engr_set_gw_ext_stat", "args": {"state": 3}, "result": null})",
                    R"({"call": "engr_get_dev_cntl", "args": {"dev_id": "b"}, "result": "b"})",
                    "{\"call\": \"engr_get_dev_cntl\", \"args\": {\"dev_id\": \"no\\\"\uFFFDne\"}, "
                    "\"result\": null}",
                    R"({"call": "engr_get_gw_dev_cntl", "args": {}, "result": "gw1"})",
                    R"({"call": "wf_station_connect", "args": )"
                    R"({"ssid": "net", "password": null}, "result": 0})",
                    R"({"call": "wf_ap_stop", "args": {}, "result": -7})"));
}

TEST_F(services, show_no_secret_in_the_trace) {
    engr_gw_user_token_bind("s3cret");
    engr_gw_user_token_bind("");
    gw_wifi_modify_and_conn("net", "s3cret");
    wf_station_connect("net", "s3cret");
    const std::string request =
        R"({"a":[{"PASSWD":"s3cret"}],"token":["s3cret",{"x":1}],"local_key":7,"b":"\"token\":1"})";
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> set(cJSON_Parse(request.c_str()),
                                                              cJSON_Delete);
    engr_save_scene_link(0, 0, set.get());
    for (const std::string &line : trace) {
        EXPECT_EQ(line.find("s3cret"), std::string::npos) << line;
    }
    EXPECT_THAT(trace[1], testing::HasSubstr(R"({"token": ""})")) << "an empty one is none";
    EXPECT_THAT(
        trace.back(),
        testing::HasSubstr(R"("root": {"a":[{"PASSWD":"***"}],"token":"***","local_key":"***",)"
                           R"("b":"\"token\":1"})"));
}

TEST_F(services, hand_the_lines_of_calls_that_must_not_wait_to_whoever_keeps_them_soon) {
    gateway::close();
    std::vector<std::string> soon;
    gateway::open_options options;
    options.trace = [this](std::string_view line) { trace.emplace_back(line); };
    options.trace_soon = [&](std::string_view line) { soon.emplace_back(line); };
    gateway::open(std::move(options));
    engr_set_gw_ext_stat(4);
    wf_ap_stop();
    EXPECT_THAT(soon, ElementsAre(testing::HasSubstr("engr_set_gw_ext_stat")));
    EXPECT_THAT(trace, ElementsAre(testing::HasSubstr("wf_ap_stop")));
}

TEST_F(services, misbehave_as_told_and_count_it) {
    EXPECT_EQ(wf_ap_stop(), -7);
    EXPECT_EQ(wf_ap_stop(), -7);
    gateway::set_service_fault("engr_get_dev_cntl", 0);
    EXPECT_EQ(engr_get_dev_cntl("a"), nullptr);
    EXPECT_EQ(
        gateway::status()["faults"].dump(),
        R"({"engr_get_dev_cntl":{"result":0,"count":1},"wf_ap_stop":{"result":-7,"count":2}})");
    gateway::set_service_fault("engr_get_dev_cntl", std::nullopt);
    gateway::set_service_fault("wf_ap_stop", std::nullopt);
    EXPECT_NE(engr_get_dev_cntl("a"), nullptr);
    EXPECT_EQ(wf_ap_stop(), 0);
    EXPECT_THROW(gateway::set_service_fault("engr_get_dev_cntl", 5), gateway::usage_error);
}

TEST_F(services, pack_with_the_key_of_the_moment) {
    const auto packed = [](const char *text) {
        uint8_t *output = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(engr_pack_data_with_cmd(0, text, 0, 0, &output, &length), 0);
        std::string bytes(reinterpret_cast<char *>(output), length);
        Free(output);
        return bytes;
    };
    const auto unpacked = [](const std::string &bytes) {
        char *text = nullptr;
        const int32_t result =
            engr_parse_data_with_cmd(0, reinterpret_cast<const uint8_t *>(bytes.data()),
                                     static_cast<uint32_t>(bytes.size()), &text);
        std::string read = result == 0 ? text : "refused";
        Free(text);
        return read;
    };
    const std::string inactive = packed(R"({"dps":{"1":true}})");
    EXPECT_EQ(unpacked(inactive), R"({"dps":{"1":true}})");
    gateway::set_gateway_field("active_stat", "2");
    EXPECT_EQ(unpacked(inactive), "refused") << "after activation the key is the gateway's own";
    EXPECT_EQ(unpacked(packed("{}")), "{}");
    EXPECT_EQ(unpacked(""), "refused");
    EXPECT_EQ(gateway::status().dump().find("0123456789abcdef"), std::string::npos)
        << "the key is never shown";
}

TEST_F(services, keep_a_device_record_and_its_reports) {
    EXPECT_EQ(gateway::report_data_points("a", R"({"2":5})"), ENGR_ERR_NO_CLIENT);
    EXPECT_EQ(gateway::report_data_points("gw1", R"({"1":"on"})"), ENGR_ERR_NO_CLIENT);
    EXPECT_THROW(gateway::report_data_points("z", R"({"2":5})"), gateway::refused);
    EXPECT_THROW(gateway::report_data_points("a", R"({"x":5})"), gateway::usage_error);
    gateway::set_device_field("a", "online", "0");
    EXPECT_EQ(engr_get_dev_cntl("a")->online, 0);
    EXPECT_THROW(gateway::set_device_field("a", "dev_id", "c"), gateway::usage_error);
    gateway::set_gateway_field("gw_id", "A");
    EXPECT_STREQ(engr_get_gw_dev_cntl()->dev_id, "a")
        << "the listed device with the gateway's id is its own";
}

/** The gateway that a new data directory has, in a simulated world. */
struct demo_gateway : sim::test {
    demo_gateway() {
        gateway::open_options options;
        options.initial_site = gateway::demo_site();
        gateway::open(std::move(options));
    }
    ~demo_gateway() override { gateway::close(); }
};

TEST_F(demo_gateway, has_devices_whose_data_points_are_those_of_their_products) {
    const gateway::site demo = gateway::demo_site();
    const auto check = [](const gateway::site_device &device) {
        gateway::set_device_field(device.id(), "online", "1");
        EXPECT_NO_THROW(gateway::report_data_points(device.id(), device.dps)) << device.id();
        EXPECT_THROW(gateway::report_data_points(device.id(), R"({"200":1})"), gateway::refused)
            << device.id() << " is of a product that is not described";
    };
    for (const gateway::site_device &device : demo.devices) {
        check(device);
    }
    engr_get_gw_cntl()->permit_join(4, true, 60);
    for (const gateway::joining_device &device : demo.joining) {
        gateway::join_device(device.id(), std::nullopt);
        check(device);
    }
}

TEST_F(services, a_registration_too_many_is_refused_by_the_agent) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(gateway::register_frame_handler(34, i), 0);
    }
    EXPECT_EQ(gateway::register_frame_handler(34, 0), ENGR_ERR_ARGUMENT);
}

/** The network state as the agent asks for it. */
std::string network_state() {
    gw_addr_t address{};
    const int32_t result = bnw_get_ip(&address);
    return std::to_string(engr_get_gw_nw_status()) + " " + std::to_string(result) + " " +
           address.ip;
}

TEST_F(services, tell_the_network_as_it_was_set) {
    EXPECT_EQ(network_state(), "1 0 192.168.1.1");
    gateway::set_network_up(false);
    EXPECT_EQ(network_state(), "0 0 192.168.1.1");
    gateway::set_network_up(true);
    gateway::set_address("10.0.0.7");
    EXPECT_EQ(network_state(), "1 0 10.0.0.7");
    gateway::set_address("");
    EXPECT_EQ(network_state(), "0 -1 ") << "without an address the network is down";
    for (const char *bad : {"1.2.3", "1.2.3.256", "1.2.3.4 ", "+1.2.3.4", "name"}) {
        EXPECT_THROW(gateway::set_address(bad), gateway::usage_error) << bad;
    }
    gateway::set_address(std::nullopt);
    EXPECT_EQ(network_state(), "1 0 192.168.1.1");
    EXPECT_EQ(ak_lan_disc_pack_send(), -1) << "not prepared";
    EXPECT_EQ(ak_lan_disc_init("1", "2"), 0);
    EXPECT_EQ(ak_lan_disc_pack_send(), 0);
}

} // namespace
