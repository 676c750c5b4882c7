/* Which states of the gateway's network the server and the broadcast take for a network. */
#include "platform/network.h"
#include "platform/owners.h"
#include "story_gateway.h"

#include <cstring>

// The agent's calls of these two come here (see CMakeLists.txt); while nothing is overridden they
// go on to the reference gateway.
extern "C" {
int32_t real_bnw_get_ip(gw_addr_t *address) __asm__("__real_bnw_get_ip");
int32_t overridden_bnw_get_ip(gw_addr_t *address) __asm__("__wrap_bnw_get_ip");
uint32_t real_gw_nw_status() __asm__("__real_engr_get_gw_nw_status");
uint32_t overridden_gw_nw_status() __asm__("__wrap_engr_get_gw_nw_status");
}

namespace {

struct wired_address {
    int32_t op_ret;
    const char *text;
};
std::optional<wired_address> wired;
std::optional<uint32_t> status;

} // namespace

int32_t overridden_bnw_get_ip(gw_addr_t *address) {
    if (!wired) {
        return real_bnw_get_ip(address);
    }
    std::strncpy(address->ip, wired->text, sizeof address->ip - 1);
    return wired->op_ret;
}

uint32_t overridden_gw_nw_status() {
    return status ? *status : real_gw_nw_status();
}

namespace {

struct network : agent_test {
    ~network() override {
        wired.reset();
        status.reset();
    }
};

TEST_F(network, is_waited_for_while_it_is_down_or_its_wired_address_is_not_settled) {
    const struct {
        const char *what;
        wired_address address;
        uint32_t gw_nw_status;
        bool is_wired;
        bool is_listening;
    } cases[] = {
        {"up", {0, "10.0.0.1"}, 1, true, true},
        {"down", {0, "10.0.0.1"}, 0, true, false},
        {"another kind of up", {0, "10.0.0.1"}, 2, true, true},
        {"all eight bits", {0, "10.0.0.1"}, 0xFF, true, true},
        {"upper bits alone", {0, "10.0.0.1"}, 0x100, true, false},
        {"an address that can't be vouched for", {-1, "10.0.0.1"}, 1, true, false},
        {"no address yet", {-1, ""}, 1, true, true},
        {"not wired", {-1, "10.0.0.1"}, 1, false, true},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        wired = one.address;
        status = one.gw_nw_status;
        ::gateway::set_service_fault("engr_get_wired_wifi_current_net",
                                     one.is_wired ? std::nullopt : std::optional<int32_t>(0));
        ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
        world.run_for(10);
        EXPECT_EQ(world.listens(lan_port), one.is_listening);
        wired.reset();
        status.reset();
        world.run_for(1'499);
        EXPECT_TRUE(world.listens(lan_port)) << "expected the next look to find a network";
        gateway.stop();
    }
}

TEST_F(network, counts_as_down_for_the_broadcast_when_the_lower_eight_bits_are_0) {
    gateway.start();
    sim::udp_peer listener = world.open_udp(6667);
    for (const uint32_t value : {0x100U, 0U, 1U, 2U, 0x80U}) {
        status = value;
        EXPECT_EQ(listener.receive(5'100).has_value(), (value & 0xFFU) != 0) << value;
    }
}

} // namespace
