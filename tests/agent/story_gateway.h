/* Vocabulary of the agent's tests: a gateway in a simulated world, and apps that talk to it. */
#pragma once

#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "gateway_services/host.h"
#include "gateway_services/operate.h"
#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "sim/testing.h"

#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

constexpr uint16_t lan_port = 6668;

/** A site with a gateway and three devices: one online, one offline, one that is leaving. */
extern const char *const small_site;

/** One app on its own connection. */
class story_app {
  public:
    explicit story_app(sim::peer connection) : peer(std::move(connection)) {}

    /** Sends one request as it stands. */
    void send(uint32_t fr_num, uint32_t fr_type, std::string_view payload = {});
    /** Sends one request encrypted with the key of a gateway that is not activated. */
    void send_encrypted(uint32_t fr_num, uint32_t fr_type, std::string_view plain);
    /** Next frame from the gateway; none when the limit is over. */
    std::optional<lan_client::frame> receive(uint64_t limit_ms = 5000);
    /** The same with its payload decrypted, as "type/number/ret/text"; "nothing" when none came. */
    std::string receive_text(uint64_t limit_ms = 5000);
    /** Sends a request and returns what receive_text does. */
    std::string ask(uint32_t fr_type, std::string_view payload = {}, bool encrypted = false);

    sim::peer peer;
    lan_client::aes_key key = lan_client::unactivated_key();
};

/** Choices of a story, from a random stream apart from the scheduler's, so that each variant meets
 * all kinds of schedules. */
class variants {
  public:
    explicit variants(const sim::world &world) : engine_(world.seed() * 0x9E3779B97F4A7C15U) {}
    /** True once in n times. */
    bool one_in(uint64_t n) { return below(n) == 0; }
    /** 0 to n - 1. */
    uint64_t below(uint64_t n) { return engine_() % n; }

  private:
    std::mt19937_64 engine_;
};

/** Preemptions for searches of all schedules: ENGR_PREEMPTIONS, or what takes seconds. */
uint32_t preemptions_to_search();

/** A new, empty directory, which is the current one as long as this lives. */
class working_directory {
  public:
    working_directory() {
        std::string name = std::filesystem::temp_directory_path() / "engr_files_XXXXXX";
        EXPECT_NE(mkdtemp(name.data()), nullptr);
        path_ = name;
        std::filesystem::current_path(path_);
    }
    working_directory(const working_directory &) = delete;
    ~working_directory() {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(path_);
    }

  private:
    std::filesystem::path path_;
};

/** A gateway with the agent in a world; stopped and closed at the end of the scope. */
class story_gateway {
  public:
    explicit story_gateway(sim::world &world, const std::string &site = small_site,
                           const std::string &scenario = "{}");
    story_gateway(const story_gateway &) = delete;
    ~story_gateway();

    /** Starts the agent in its own mode and waits until it listens. */
    void start();
    void stop();
    /** Connects an app; waits until the agent has it in its table. */
    story_app connect();

    std::vector<std::string> trace;    /**< lines of the services' trace */
    std::vector<std::string> activity; /**< what they tell whoever watches */

  private:
    sim::world &world_;
};

/** A fixture with world and gateway, the agent not started yet. */
struct agent_test : sim::test {
    explicit agent_test(const std::string &site = small_site) : gateway(world, site) {}
    story_gateway gateway;
};
