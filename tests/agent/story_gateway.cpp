/* The vocabulary of the agent's tests. */
#include "story_gateway.h"

const char *const small_site =
    R"({"gateway": {"gw_id": "gw0001", "disc_version": "1.0", "product_key": "pk"},
  "devices": [
    {"dev_id": "lamp", "pid": "p1", "state": 1, "online": 1, "dps": {"1": true}},
    {"dev_id": "door", "pid": "p2", "state": 1, "online": 0},
    {"dev_id": "gone", "pid": "p3", "state": 2, "online": 1},
    {"dev_id": "hidden", "pid": "p4", "state": 1, "online": 1, "excluded": 1}]})";

uint32_t preemptions_to_search() {
    const char *chosen = std::getenv("ENGR_PREEMPTIONS");
    return chosen != nullptr   ? static_cast<uint32_t>(std::strtoul(chosen, nullptr, 10))
           : sim::is_sanitized ? 0
                               : 1;
}

void story_app::send(uint32_t fr_num, uint32_t fr_type, std::string_view payload) {
    peer.send(lan_client::encode_request(fr_num, fr_type, payload));
}

void story_app::send_encrypted(uint32_t fr_num, uint32_t fr_type, std::string_view plain) {
    send(fr_num, fr_type, lan_client::encrypt(key, plain));
}

std::optional<lan_client::frame> story_app::receive(uint64_t limit_ms) {
    std::string bytes = peer.receive(16, limit_ms);
    if (bytes.size() < 16) {
        return std::nullopt;
    }
    const auto byte = [&](size_t at) {
        return static_cast<size_t>(static_cast<uint8_t>(bytes[at]));
    };
    bytes += peer.receive(byte(12) << 24U | byte(13) << 16U | byte(14) << 8U | byte(15), limit_ms);
    const auto decoded = lan_client::decode_frame(bytes);
    EXPECT_EQ(decoded.status, lan_client::decode_status::whole) << "expected one whole frame";
    EXPECT_TRUE(decoded.decoded.crc_matches) << "expected a frame with a right CRC";
    return decoded.decoded;
}

std::string story_app::receive_text(uint64_t limit_ms) {
    const auto frame = receive(limit_ms);
    if (!frame) {
        return "nothing";
    }
    std::string text = std::to_string(frame->type) + "/" + std::to_string(frame->number) + "/" +
                       std::to_string(frame->ret) + "/";
    if (!frame->payload.empty()) {
        text += lan_client::decrypt(key, frame->payload).value_or("(undecryptable)");
    }
    return text;
}

std::string story_app::ask(uint32_t fr_type, std::string_view payload, bool encrypted) {
    encrypted ? send_encrypted(7, fr_type, payload) : send(7, fr_type, payload);
    return receive_text();
}

story_gateway::story_gateway(sim::world &world, const std::string &site,
                             const std::string &scenario)
    : world_(world) {
    ::gateway::open({.store_path = ":memory:",
                     .initial_site = ::gateway::parse_site(site, "site"),
                     .faults = ::gateway::parse_scenario(scenario, "scenario"),
                     .trace = [this](std::string_view line) { trace.emplace_back(line); },
                     .activity = [this](std::string_view line) { activity.emplace_back(line); },
                     .address = [] { return std::string("192.168.1.1"); }});
}

story_gateway::~story_gateway() {
    stop();
    ::gateway::close();
}

void story_gateway::start() {
    ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
    ASSERT_TRUE(world_.run_until_listening(lan_port));
    world_.run_until_idle();
}

void story_gateway::stop() {
    EXPECT_EQ(engr_lan_pro_cntl_exit(), 0);
}

story_app story_gateway::connect() {
    story_app app(world_.connect(lan_port));
    EXPECT_TRUE(app.peer) << "expected the gateway to take the connection";
    world_.run_until_idle();
    return app;
}
