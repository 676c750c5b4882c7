/*
 * Hostile bytes for a whole gateway on the simulated port. The first two bytes choose the seed and
 * how the rest is handed over: as it stands, cut into pieces, as a row of requests (type, length,
 * text to be encrypted), or as a datagram to the access-point listener. A sound client must be
 * served afterwards, the agent must stop, and nothing may be left behind.
 */
#include "engr_lan_agent.h"
#include "gateway_services/host.h"
#include "gateway_services/operate.h"
#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"
#include "sim/explore.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

constexpr uint16_t lan_port = 6668;

/** Ends the run as a finding. */
void require(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "expected %s\n", what);
        std::abort();
    }
}

/** A row of requests, each with its payload encrypted. */
std::string encrypted_requests(std::string_view rest) {
    std::string bytes;
    for (uint32_t number = 1; rest.size() >= 2; ++number) {
        const auto type = static_cast<uint8_t>(rest[0]);
        const auto length = static_cast<uint8_t>(rest[1]);
        const std::string_view plain = rest.substr(2, length);
        rest.remove_prefix(2 + plain.size());
        bytes += lan_client::encode_request(
            number, type, lan_client::encrypt(lan_client::unactivated_key(), plain));
    }
    return bytes;
}

int take_credentials(const char *ssid, const char *, const char *token) {
    require(ssid != nullptr && token != nullptr, "credentials to be texts");
    return 1;
}

void send_datagram(sim::world &world, std::string_view bytes) {
    require(engr_lan_ap_nw_cfg_start(take_credentials) == 0, "the listener to start");
    sim::udp_peer app = world.open_udp();
    app.send(6669, bytes);
    world.run_until_idle();
    engr_lan_ap_nw_cfg_stop();
}

void send_pieces(sim::world &world, sim::peer &peer, uint8_t how, std::string_view bytes) {
    const size_t piece = how % 4 == 1 ? 1U + how / 4U : bytes.size();
    while (!bytes.empty()) {
        peer.send(bytes.substr(0, piece));
        bytes.remove_prefix(std::min(piece, bytes.size()));
        world.run_until_idle();
    }
}

void run(sim::world &world, uint8_t how, std::string_view rest) {
    gateway::open_options options;
    options.initial_site = gateway::demo_site();
    options.address = [] { return std::string("192.168.1.1"); };
    gateway::open(options);
    require(engr_lan_pro_cntl_init(ENGR_MODE_LAN) == 0, "the agent to start");
    require(world.run_until_listening(lan_port), "the agent to listen");
    sim::peer hostile = world.connect(lan_port);
    if (how % 4 == 3) {
        send_datagram(world, rest);
    } else {
        send_pieces(world, hostile, how,
                    how % 4 == 2 ? encrypted_requests(rest) : std::string(rest));
    }
    sim::peer sound = world.connect(lan_port);
    sound.send(lan_client::encode_request(5, lan_client::frame_type::keepalive, {}));
    require(sound.receive(28).size() == 28, "the sound client to be served");
    engr_lan_pro_cntl_exit();
    // Ends an upgrade that was begun, which outlives a stop.
    engr_lan_gw_subdevice_update(gateway::demo_site().devices.front().id().c_str(), "1", 0, 0, 0);
    world.run_for(130'000);
    gateway::close();
}

} // namespace

/** What an app stores must not lie about where the target was started. */
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    std::string directory = std::filesystem::temp_directory_path() / "engr_fuzz_XXXXXX";
    require(mkdtemp(directory.data()) != nullptr, "a directory for the gateway's files");
    std::filesystem::current_path(directory);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char *>(data) + 2, size - 2);
    sim::options options;
    options.seed = data[0];
    const uint8_t how = data[1];
    const sim::run_result result =
        sim::run_story(options, [&](sim::world &world) { run(world, how, rest); });
    for (const std::string &problem : result.problems) {
        std::fprintf(stderr, "%s\n", problem.c_str());
    }
    require(result.problems.empty(), "nothing to be left behind");
    return 0;
}
