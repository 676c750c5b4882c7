/* Short stories in which two threads of the gateway meet, under all schedules: what an app gets is
 * whole, and the agent works afterwards. */
#include "platform/clock.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

namespace {

constexpr uint16_t config_port = 6669;

/** The acts run at the same time, each on a thread of its own; returns when all are over. */
void race(sim::world &world, std::initializer_list<std::function<void()>> acts) {
    std::vector<sim::test_thread> threads;
    for (const auto &act : acts) {
        threads.push_back(world.spawn("act " + std::to_string(threads.size()), act));
    }
    sim::begin_race();
    threads.clear();
    sim::end_race();
}

void start() {
    EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
}

void stop() {
    EXPECT_EQ(engr_lan_pro_cntl_exit(), 0);
}

void report() {
    engr_lan_sub_dev_unbind_report("lamp");
}

void queue_report() {
    static const std::string block = std::string(8, '\0') + R"({"cid":"lamp"})" + '\0';
    engr_lan_dp_sata_report(reinterpret_cast<const lan_dp_report_t *>(block.data()),
                            static_cast<uint32_t>(block.size()));
}

const std::string direct_frame = R"(228/0/0/{"cid":"lamp"})";
const std::string queued_frame = R"(8/0/0/{"cid":"lamp"})";

/** The agent started, and two apps; at the end started once more. */
struct scene {
    explicit scene(sim::world &in) : world(in), gateway(in) {
        gateway.start();
        app.emplace(gateway.connect());
        other.emplace(gateway.connect());
    }
    ~scene() {
        app->peer.close();
        other->peer.close();
        EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
        EXPECT_TRUE(world.run_until_listening(lan_port, 5'000))
            << "expected the agent to listen again";
        EXPECT_EQ(gateway.connect().ask(FRM_KEEPALIVE), "9/0/0/")
            << "expected the agent to answer afterwards";
        gateway.stop();
    }
    /** Both apps got the frame or nothing, whole. */
    void expect_frame_or_nothing(const std::string &frame) {
        for (story_app *each : {&*app, &*other}) {
            const std::string got = each->receive_text(100);
            EXPECT_TRUE(got == frame || got == "nothing")
                << "expected " << frame << ", got " << got;
            EXPECT_EQ(each->receive_text(100), "nothing") << "expected one frame at most";
        }
    }

    sim::world &world;
    story_gateway gateway;
    std::optional<story_app> app;
    std::optional<story_app> other;
};

void stop_against_a_report(sim::world &world) {
    scene at(world);
    race(world, {stop, report});
    at.expect_frame_or_nothing(direct_frame);
}

void stop_against_a_queued_report(sim::world &world) {
    scene at(world);
    race(world, {stop, queue_report});
    at.expect_frame_or_nothing(queued_frame);
}

void stop_against_a_request(sim::world &world) {
    scene at(world);
    race(world, {stop, [&] { at.app->send(7, FRM_KEEPALIVE); }});
    at.expect_frame_or_nothing("9/0/0/");
}

void stop_against_a_report_that_waits_for_its_app(sim::world &world) {
    scene at(world);
    // The app has read the frame in two steps long before the grace is over.
    at.app->peer.link().to_peer_bytes_max = 40;
    at.app->peer.read_slowly(40, 2);
    std::vector<sim::test_thread> reporter;
    reporter.push_back(world.spawn("reporter", report));
    world.run_for(1);
    race(world, {stop, [&] { at.other->send(7, FRM_KEEPALIVE); }});
    reporter.clear();
    EXPECT_EQ(at.app->receive_text(1'000), direct_frame)
        << "expected a stop to leave time to a report that is under way";
}

void closing_all_against_a_report(sim::world &world) {
    scene at(world);
    race(world, {lpc_close_all_socket, report});
    at.expect_frame_or_nothing(direct_frame);
}

void closing_all_against_a_request(sim::world &world) {
    scene at(world);
    race(world, {lpc_close_all_socket, [&] { at.app->send(7, FRM_KEEPALIVE); }});
    at.expect_frame_or_nothing("9/0/0/");
}

void stop_against_a_stop(sim::world &world) {
    scene at(world);
    race(world, {stop, stop});
}

void stop_against_a_start(sim::world &world) {
    scene at(world);
    race(world, {stop, start});
}

void stop_against_a_discovery(sim::world &world) {
    scene at(world);
    world.run_for(4'999 - world.now_ms() % 5'000);
    race(world, {[&] {
             kelo_hal_system_delay(1);
             stop();
         }});
}

void start_against_a_start(sim::world &world) {
    scene at(world);
    at.gateway.stop();
    race(world, {start, start});
}

size_t credentials;

int take_credentials(const char * /*ssid*/, const char * /*passwd*/, const char * /*token*/) {
    ++credentials;
    return 0;
}

void start_listener() {
    EXPECT_EQ(engr_lan_ap_nw_cfg_start(take_credentials), 0);
}

void listener_stop_against(sim::world &world, const std::function<void(sim::udp_peer &)> &act) {
    const story_gateway gateway(world);
    sim::udp_peer app = world.open_udp();
    credentials = 0;
    start_listener();
    world.run_until_idle();
    race(world, {engr_lan_ap_nw_cfg_stop, [&] { act(app); }});
    EXPECT_LE(credentials, 1U);
    engr_lan_ap_nw_cfg_stop();
    start_listener();
    world.run_until_idle();
    engr_lan_ap_nw_cfg_stop();
    app.close();
}

void listener_stop_against_a_datagram(sim::world &world) {
    listener_stop_against(world, [](sim::udp_peer &app) {
        app.send(config_port, lan_client::encode_request(
                                  0, FRM_AP_NW_CFG, R"({"ssid":"s","passwd":"p","token":"t"})"));
    });
}

void listener_stop_against_a_stop(sim::world &world) {
    listener_stop_against(world, [](sim::udp_peer &) { engr_lan_ap_nw_cfg_stop(); });
}

void listener_stop_against_a_start(sim::world &world) {
    listener_stop_against(world, [](sim::udp_peer &) { start_listener(); });
}

struct race_story {
    const char *name;
    void (*tell)(sim::world &world);
};

class races : public testing::TestWithParam<race_story> {};

TEST_P(races, harm_neither_app_nor_agent_under_all_schedules) {
    const sim::search_bounds bounds = {
        .preemptions_max = preemptions_to_search(), .runs_max = 100'000'000, .whole_story = false};
    const uint64_t tried = sim::expect_all_schedules(GetParam().tell, bounds);
    EXPECT_GT(tried, 1U) << "expected threads to meet";
    std::printf("%llu schedules\n", static_cast<unsigned long long>(tried));
}

/** The name of a story in a failure message. */
void PrintTo(const race_story &story, std::ostream *out) {
    *out << story.name;
}

// clang-format off
#define STORY(name) race_story { #name, name }
// clang-format on
INSTANTIATE_TEST_SUITE_P(
    of, races,
    testing::Values(STORY(stop_against_a_report), STORY(stop_against_a_queued_report),
                    STORY(stop_against_a_request),
                    STORY(stop_against_a_report_that_waits_for_its_app),
                    STORY(closing_all_against_a_report), STORY(closing_all_against_a_request),
                    STORY(stop_against_a_stop), STORY(stop_against_a_start),
                    STORY(stop_against_a_discovery), STORY(start_against_a_start),
                    STORY(listener_stop_against_a_datagram), STORY(listener_stop_against_a_stop),
                    STORY(listener_stop_against_a_start)),
    [](const auto &one) { return std::string(one.param.name); });
#undef STORY

} // namespace
