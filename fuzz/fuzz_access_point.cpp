// A datagram to a gateway that waits for its Wi-Fi network. The first byte says what the rest is:
// the datagram, a text that an app encrypts, or a network's name, a token and a password with zero
// bytes between them.
//
// What an app sends arrives to the letter. Nothing else is handed on as a network but a text that
// has a name and a token, and the listener goes on until it has one.
#include "engr_lan_agent.h"
#include "lan_client/frame.h"
#include "lan_client/provisioning.h"
#include "sim/world.h"
#include "support/require.h"

#include <cstdlib>
#include <memory>
#include <optional>

namespace {

using fuzz::require;

constexpr uint16_t configuration_port = 6669;
constexpr unsigned inputs_per_world = 2000;

std::optional<lan_client::wifi_configuration> handed_on;

int take_credentials(const char *ssid, const char *passwd, const char *token) {
    require(ssid != nullptr && token != nullptr, "a name and a token");
    handed_on = {ssid, passwd == nullptr ? "" : passwd, token};
    return 1; // the listener goes on
}

/** A gateway that listens, kept from input to input. */
struct listening_gateway {
    listening_gateway() : world({.quiet_points = false}) {
        require(engr_lan_ap_nw_cfg_start(take_credentials) == 0, "the listener to start");
        world.run_until_idle();
        at_rest = world.in_use();
    }
    listening_gateway(const listening_gateway &) = delete;
    listening_gateway &operator=(const listening_gateway &) = delete;
    ~listening_gateway() {
        engr_lan_ap_nw_cfg_stop();
        require(world.finish().empty(), "nothing to be left behind");
    }

    sim::world world;
    sim::resources at_rest;
    unsigned inputs = 0;
};

std::string datagram_of(std::string_view text, bool encrypts) {
    using lan_client::frame_type::ap_nw_cfg;
    using lan_client::frame_type::udp_wifi_err;
    return encrypts
               ? lan_client::encode_request(
                     1, udp_wifi_err, lan_client::encrypt(lan_client::configuration_key(), text))
               : lan_client::encode_request(1, ap_nw_cfg, text);
}

std::string next_text(std::string_view &rest) {
    const size_t end = std::min(rest.find('\0'), rest.size());
    const std::string text(rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return text;
}

std::unique_ptr<listening_gateway> gateway;

void send(std::string_view datagram) {
    if (!gateway || ++gateway->inputs > inputs_per_world) {
        gateway.reset();
        gateway = std::make_unique<listening_gateway>();
        // Before what the simulated port keeps is destroyed.
        static const int ends_in_order = std::atexit([] { gateway.reset(); });
        require(ends_in_order == 0, "an orderly end");
    }
    handed_on.reset();
    sim::udp_peer app = gateway->world.open_udp();
    app.send(configuration_port, datagram);
    gateway->world.run_until_idle();
    app.close();
    gateway->world.log().clear();
    require(gateway->world.in_use() == gateway->at_rest, "nothing to be kept of a datagram");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > 2000) {
        return 0;
    }
    std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    switch (data[0]) {
    case 't':
        send(datagram_of(rest, true));
        break;
    case 'n':
    case 'N': {
        lan_client::wifi_configuration chosen;
        chosen.network = next_text(rest);
        chosen.token = next_text(rest);
        chosen.password = next_text(rest);
        const std::string datagram =
            datagram_of(lan_client::configuration_text(chosen), data[0] == 'N');
        if (lan_client::is_valid(chosen) &&
            datagram.size() <= lan_client::max_configuration_bytes) {
            send(datagram);
            require(handed_on && handed_on->network == chosen.network &&
                        handed_on->token == chosen.token && handed_on->password == chosen.password,
                    "what an app sends to arrive to the letter");
        }
        break;
    }
    default:
        send(rest);
        break;
    }
    return 0;
}
