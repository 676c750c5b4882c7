#include "support/gateway_world.h"

#include "engr_lan_agent.h"
#include "gateway_services/host.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"
#include "support/kept_store.h"
#include "support/require.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace fuzz {
namespace {

constexpr const char *site = R"({"gateway": {"gw_id": "engrgw0000000002"},
 "products": {"zbdimmer": {"1": {"kind": "bool"}, "2": {"kind": "value", "min": 10, "max": 1000}}},
 "devices": [
  {"dev_id": "lamp1", "pid": "zbdimmer", "sw_ver": "1.0.9", "dps": {"1": true, "2": 640}},
  {"dev_id": "lamp2", "pid": "zbdimmer", "sw_ver": "1.0.9", "online": false}]})";

/** A world keeps a record of its schedule, which grows. */
constexpr unsigned inputs_per_world = 2000;

/** By then the agent has all that it keeps. */
constexpr uint64_t discovery_begins_ms = 11'000;

constexpr size_t keepalive_reply_bytes = 28;

// Services that leave the gateway as it is.
constexpr std::string_view queries[] = {"engr_get_gw_ext_stat",
                                        "engr_get_dev_cntl",
                                        "engr_get_gw_dev_cntl",
                                        "engr_pack_data_with_cmd",
                                        "engr_parse_data_with_cmd",
                                        "engr_sf_pack_local_obj_dp_data",
                                        "engr_sf_respone_obj_dp_query",
                                        "get_config_path",
                                        "gw_get_channel",
                                        "get_log_path",
                                        "gw_read_file"};

std::unique_ptr<gateway_world> kept;
std::filesystem::path directory;

} // namespace

gateway_world &gateway_world::fresh() {
    if (kept && (kept->is_changed_ || kept->inputs_ >= inputs_per_world)) {
        kept.reset();
    }
    if (!kept) {
        kept = std::make_unique<gateway_world>();
        // Before what the simulated port keeps is destroyed.
        static const int ends_in_order = std::atexit([] { kept.reset(); });
        require(ends_in_order == 0, "an orderly end");
    }
    ++kept->inputs_;
    return *kept;
}

gateway_world::gateway_world()
    : world_(sim::with_environment({.quiet_points = false, .keeps_log = false})) {
    for (const char *file : {"app.config", "cloud.config"}) {
        std::filesystem::remove(directory / file);
    }
    static const gateway::site parsed_site = gateway::parse_site(site, "site");
    gateway::open(
        {.store_path = ":memory:",
         .initial_site = parsed_site,
         .faults = {},
         .trace = [this](std::string_view line) { note_call(line); },
         .newest_log =
             [](size_t bytes) { return std::string("a line\n", std::min<size_t>(bytes, 7)); },
         .address = [] { return std::string("192.168.1.1"); }});
    keep_store();
    require(engr_lan_pro_cntl_init(ENGR_MODE_LAN) == 0, "the agent to start");
    require(world_.run_until_listening(lan_port), "the agent to listen");
    world_.run_for(discovery_begins_ms);
    is_changed_ = false;
    at_rest_ = world_.in_use();
}

gateway_world::~gateway_world() {
    engr_lan_ap_nw_cfg_stop();
    engr_lan_pro_cntl_exit();
    // Ends an upgrade that was begun, which outlives a stop.
    engr_lan_gw_subdevice_update("lamp1", "1", 0, 0, 0);
    world_.run_for(130'000);
    gateway::close();
    for (const std::string &problem : world_.finish()) {
        std::fprintf(stderr, "%s\n", problem.c_str());
    }
    require(world_.finish().empty(), "nothing to be left behind");
}

void gateway_world::note_call(std::string_view line) {
    constexpr std::string_view before_name = R"({"call": ")";
    line.remove_prefix(before_name.size());
    const std::string_view name = line.substr(0, line.find('"'));
    const bool is_refused = line.substr(line.rfind(':')).starts_with(": -");
    is_changed_ =
        is_changed_ || (!is_refused && std::ranges::find(queries, name) == std::end(queries));
}

sim::peer gateway_world::connect() {
    sim::peer app = world_.connect(lan_port);
    require(static_cast<bool>(app), "the gateway to accept a connection");
    world_.run_until_idle();
    return app;
}

void gateway_world::settle() {
    sim::peer sound = connect();
    sound.send(lan_client::encode_request(5, lan_client::frame_type::keepalive, {}));
    require(sound.receive(keepalive_reply_bytes).size() == keepalive_reply_bytes,
            "a sound app to be served");
    sound.close();
    require(world_.run_until([this] { return world_.in_use().sockets <= at_rest_.sockets; }),
            "the gateway to close its connections");
    require(engr_lan_pro_cntl_get_valid_connect_cnt() == 0, "the table of clients to be empty");
    world_.run_until_idle();
    if (is_changed_) {
        end();
    } else {
        require(world_.in_use() == at_rest_, "an input that changed nothing to leave nothing");
    }
}

void gateway_world::end() {
    kept.reset();
}

} // namespace fuzz

/** What an app stores must not lie about where the target was started. */
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const std::filesystem::path memory = "/dev/shm"; // files of a disk take longer
    std::string name = (is_directory(memory) ? memory : std::filesystem::temp_directory_path()) /
                       "engr_fuzz_XXXXXX";
    fuzz::require(mkdtemp(name.data()) != nullptr, "a directory for the gateway's files");
    fuzz::directory = name;
    std::filesystem::current_path(name);
    return std::atexit([] { std::filesystem::remove_all(fuzz::directory); });
}
