/* Promises of the network's state, of Wi-Fi and of AirKiss. */
#include "kit.h"

#include "platform/airkiss.h"
#include "platform/network.h"
#include "platform/wifi.h"

static bool is_text(const char *field, size_t size) {
    return memchr(field, '\0', size) != NULL;
}

static void expect_address(const char *call, int32_t result, const gw_addr_t *address) {
    EXPECT(result == 0, "expected %s to return 0 while the network is up, not %d", call,
           (int)result);
    EXPECT(is_text(address->ip, sizeof address->ip) &&
               is_text(address->gateway, sizeof address->gateway) &&
               is_text(address->mask, sizeof address->mask),
           "expected three NUL-terminated texts from %s", call);
    EXPECT(strncmp(address->ip, kit->network_address, sizeof address->ip) == 0,
           "expected %s to tell %s, not %.16s", call, kit->network_address, address->ip);
}

void network_the_address_is_the_gateways(void) {
    gw_addr_t address;
    if (kit->network_address == NULL) {
        kit_skip("the harness tells no network_address");
        return;
    }
    memset(&address, '#', sizeof address);
    expect_address("bnw_get_ip", bnw_get_ip(&address), &address);
    memset(&address, '#', sizeof address);
    expect_address("wf_get_ip", wf_get_ip(WF_STATION, &address), &address);
}

void network_its_state_follows_the_network(void) {
    if (kit->network_address == NULL) {
        kit_skip("the harness tells no network_address");
        return;
    }
    uint8_t kind = 0xEE;
    EXPECT(engr_get_wired_wifi_current_net(&kind) == 0 && kind != 0xEE,
           "expected the kind of network to be known");
    EXPECT((engr_get_gw_nw_status() & 0xFFu) != 0, "expected the network to be up");
    if (kit->set_network != NULL) {
        kit->set_network(false);
        EXPECT((engr_get_gw_nw_status() & 0xFFu) == 0, "expected the network to be down");
        kit->set_network(true);
        EXPECT((engr_get_gw_nw_status() & 0xFFu) != 0, "expected the network to be up again");
    }
    (void)bnw_need_wifi_cfg();
}

void wifi_a_failure_leaves_the_mode(void) {
    uint32_t mode = 0xEEEEEEEEu;
    const int32_t result = wf_wk_mode_get(&mode);
    if (result != 0) {
        EXPECT(mode == 0xEEEEEEEEu, "expected a failure to leave the mode");
        EXPECT(!kit->has_wifi, "expected a port with Wi-Fi to know its mode");
    } else {
        EXPECT(mode != 0xEEEEEEEEu, "expected the mode to be stored");
    }
}

static void answer_airkiss(void *argument) {
    (void)argument;
    ak_lan_rev_active_task(NULL);
}

void airkiss_the_task_ends_when_told_to_stop(void) {
    kit_thread_t thread;
    kit_start(&thread, answer_airkiss, NULL);
    kelo_hal_system_sleep(50);
    const uint64_t start = kit->now_ms();
    kit_stop(&thread);
    EXPECT_IN_TIME(kit_at_once(start), "expected a stop to end the task at once, it took %u ms",
                   (unsigned)kit_since(start));
}

void airkiss_a_failure_leaves_the_state(void) {
    uint8_t status = 0xEE;
    const int32_t result = get_wf_gw_nw_status(&status);
    if (result != 0) {
        EXPECT(status == 0xEE, "expected a failure to leave the state");
        EXPECT(!kit->has_airkiss, "expected a port with AirKiss to know the station's state");
        return;
    }
    EXPECT(status != 0xEE, "expected the state to be stored");
    if (kit->has_airkiss) {
        EXPECT(ak_lan_disc_init("first", "second") == 0, "expected the packet to be prepared");
    }
}
