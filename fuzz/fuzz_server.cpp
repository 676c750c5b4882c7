/*
 * Hostile bytes for a whole gateway on the simulated port. The first two bytes choose the seed and
 * how the rest is handed over: as it stands, cut into pieces, or as the plain text of one encrypted
 * request whose type is the next byte. A sound client must be served afterwards, the agent must
 * stop, and nothing may be left behind.
 */
#include "engr_lan_agent.h"
#include "gateway_services/gateway.h"
#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "sim/explore.h"

#include <cstdio>
#include <cstdlib>
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

/** What the hostile client sends. */
std::string hostile_bytes(uint8_t how, std::string_view rest) {
    if (how % 3 != 2 || rest.empty()) {
        return std::string(rest);
    }
    const auto type = static_cast<uint8_t>(rest[0]);
    return lan_client::encode_request(
        1, type, lan_client::encrypt(lan_client::unactivated_key(), rest.substr(1)));
}

void send_pieces(sim::world &world, sim::peer &peer, uint8_t how, std::string_view bytes) {
    const size_t piece = how % 3 == 1 ? 1U + how / 3U : bytes.size();
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
    send_pieces(world, hostile, how, hostile_bytes(how, rest));
    sim::peer sound = world.connect(lan_port);
    sound.send(lan_client::encode_request(5, 9, {}));
    require(sound.receive(28).size() == 28, "the sound client to be served");
    engr_lan_pro_cntl_exit();
    gateway::close();
}

} // namespace

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
