// What announcements say about gateways that need a Wi-Fi network, how many are remembered, and
// what is sent to one of them and heard.
#include "lan_client/gateway_list.h"
#include "lan_client/limits.h"
#include "lan_client/provisioning.h"
#include "lan_client/wifi_candidates.h"

#include <gtest/gtest.h>

namespace {

using namespace lan_client;
using readiness = wifi_candidates::readiness;
using sign = wifi_candidates::sign;

announcement heard(const std::string &id, bool needs_wifi, const std::string &interface_name = "ap",
                   const std::string &address = "192.0.2.7") {
    return {.address = address,
            .interface_name = interface_name,
            .announced_address = {},
            .id = id,
            .product_key = {},
            .version = {},
            .needs_wifi_setup = needs_wifi};
}

TEST(wifi_candidates_test, know_who_waits_and_where) {
    const struct {
        const char *wanted;
        std::vector<announcement> before;
        readiness expected;
        std::set<std::string> interfaces;
    } cases[] = {
        {"", {}, readiness::nobody_waits, {}},
        {"", {heard("a", false)}, readiness::nobody_waits, {}},
        {"", {heard("a", true), heard("b", true, "ap2")}, readiness::ready, {"ap", "ap2"}},
        {"b", {heard("a", true), heard("b", true, "ap2")}, readiness::ready, {"ap2"}},
        {"c", {heard("a", true)}, readiness::not_heard, {}},
        {"a", {heard("a", false)}, readiness::not_waiting, {}},
    };
    for (const auto &one : cases) {
        wifi_candidates candidates("", one.wanted);
        for (const announcement &announced : one.before) {
            const bool enough = announced.needs_wifi_setup && announced.id == one.wanted;
            EXPECT_EQ(candidates.note(announced), enough) << one.wanted;
        }
        EXPECT_EQ(candidates.state(), one.expected) << one.wanted;
        EXPECT_EQ(candidates.interfaces(), one.interfaces) << one.wanted;
    }
    wifi_candidates elsewhere("eth0", "a");
    EXPECT_FALSE(elsewhere.note(heard("a", true, "ap"))) << "expected it to wait where asked";
    EXPECT_EQ(elsewhere.state(), readiness::not_waiting);
}

TEST(wifi_candidates_test, tell_the_right_gateway_from_others) {
    wifi_candidates any("", "");
    any.note(heard("there", false));
    EXPECT_EQ(any.judge(heard("other", false)), sign::unsure);
    EXPECT_FALSE(any.can_recognise());
    EXPECT_EQ(any.judge(heard("new", true)), sign::none);
    EXPECT_EQ(any.judge(heard("new", false)), sign::joined) << "expected it to have waited";
    EXPECT_EQ(any.judge(heard("there", false)), sign::none) << "it had its network before";
    EXPECT_EQ(any.judge(heard("there", false, "ap", "192.0.2.8")), sign::unsure);

    wifi_candidates named("", "gw");
    EXPECT_TRUE(named.can_recognise());
    EXPECT_EQ(named.judge(heard("other", false)), sign::none);
    EXPECT_EQ(named.judge(heard("gw", false)), sign::joined);
}

TEST(wifi_candidates_test, remember_a_bounded_number_and_whoever_is_meant) {
    wifi_candidates any("", "");
    wifi_candidates one("", "gw");
    for (std::size_t made = 0; made < max_discovered_gateways; ++made) {
        const std::string number = std::to_string(made);
        any.note(heard("w" + number, true, "ap", number));
        one.note(heard("w" + number, true, "ap", number));
    }
    EXPECT_EQ(any.heard(), max_discovered_gateways);
    any.note(heard("late", true, "ap2"));
    EXPECT_EQ(any.interfaces(), std::set<std::string>{"ap"});
    EXPECT_EQ(any.judge(heard("late", false)), sign::unsure) << "expected no room for it";
    EXPECT_EQ(any.judge(heard("w0", false, "ap", "0")), sign::joined);
    EXPECT_EQ(any.judge(heard("w4095", false, "ap", "4095")), sign::joined);

    EXPECT_TRUE(one.interfaces().empty()) << "expected to know where the one that is meant is";
    EXPECT_TRUE(one.note(heard("gw", true))) << "expected room for the one that is meant";
    EXPECT_EQ(one.state(), readiness::ready);
    EXPECT_EQ(one.heard(), max_discovered_gateways + 1);
}

TEST(gateway_list_test, keeps_a_bounded_number_and_whoever_is_awaited) {
    gateway_list list;
    EXPECT_TRUE(list.note(heard("a", true, "ap")));
    EXPECT_FALSE(list.note(heard("a", false, "eth0"))) << "expected it to be known";
    EXPECT_FALSE(list.find_id("a")->needs_wifi_setup) << "expected the latest announcement";
    EXPECT_EQ(list.find_id("a")->interface_name, "ap") << "expected where it was heard first";
    for (std::size_t made = 0; made < 2 * max_discovered_gateways; ++made) {
        const std::string address = "192.0.2." + std::to_string(made % 8);
        list.note(heard("liar" + std::to_string(made), false, "ap", address));
    }
    EXPECT_EQ(list.all().size(), 8 * max_discovered_at_one_address);
    EXPECT_TRUE(list.note(heard("awaited", false), true));
    EXPECT_NE(list.find_id("awaited"), nullptr);
    for (std::size_t made = 0; made < 2 * max_discovered_gateways; ++made) {
        list.note(heard("liar", false, "ap", std::to_string(made)));
    }
    EXPECT_EQ(list.all().size(), max_discovered_gateways);
}

TEST(provisioning_channel_test, sends_up_to_256_bytes_through_its_interface_and_shows_them) {
    event_loop loop;
    std::string shown;
    provisioning_channel channel(
        loop, [](const std::optional<wifi_failure> &) {},
        [&](const traffic &seen) {
            shown += (seen.sent ? "sent " : "received ") + std::string(seen.text);
        });
    const std::string longest(
        max_configuration_bytes - configuration_bytes("", payload_coding::plain), 'x');
    const auto send = [&channel](const std::string &text) {
        return channel.send(text, payload_coding::plain, "127.0.0.1").kind;
    };
    EXPECT_EQ(send(longest + "x"), error_kind::too_large);
    EXPECT_EQ(shown, "");
    EXPECT_EQ(send(longest), error_kind::none);
    EXPECT_EQ(shown, "sent " + longest);
    EXPECT_EQ(channel.open("no-such-if").kind, error_kind::no_interface);
    EXPECT_EQ(send("x"), error_kind::no_interface) << "expected it to leave by no other one";
}

} // namespace
