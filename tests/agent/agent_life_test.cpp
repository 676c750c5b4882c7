/* Concurrent starts and stops, under every schedule of short stories: no thread hangs or spins, and
 * the frame being handled is answered. */
#include "base/agent_use.h"
#include "platform/clock.h"
#include "sim/explore.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

namespace {

constexpr uint32_t handled_type = 102;

int handled;
int (*in_handler)();

int handle(cJSON *root) {
    ++handled;
    if (in_handler() != 0) {
        return 1;
    }
    cJSON_Delete(root);
    return 0;
}

/** A started gateway's handler, registered once for the process. */
void set_handler(int (*act)()) {
    static const int32_t registered = engr_lan_protocol_register_cb(handled_type, handle);
    ASSERT_EQ(registered, 0);
    handled = 0;
    in_handler = act;
}

/** Few steps without time passing, so that polling without a pause is found. */
const sim::options impatient = {.steps_without_time_max = 20'000};

TEST(agent_life, a_stop_before_the_worker_runs_does_not_hang_a_handler_that_stops_or_starts) {
    const auto story = [](sim::world &world) {
        story_gateway gateway(world);
        set_handler([] {
            EXPECT_EQ(engr_lan_pro_cntl_exit(), 0);
            engr_lan_pro_cntl_init(ENGR_MODE_LAN);
            return 0;
        });
        ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
        sim::test_thread stopper = world.spawn("stopper", [] { engr_lan_pro_cntl_exit(); });
        if (world.run_until_listening(lan_port, 10)) {
            if (sim::peer peer = world.connect(lan_port)) {
                story_app app(peer);
                app.send_encrypted(1, handled_type, "{}");
                app.receive(100);
            }
        }
        stopper.join();
        gateway.stop();
        gateway.start();
    };
    sim::expect_all_seeds(200, story, impatient);
}

TEST(agent_life, a_stop_lets_the_current_frame_be_answered_and_starts_no_other) {
    int answered = 0;
    int unanswered = 0;
    const auto story = [&](sim::world &world) {
        story_gateway gateway(world);
        set_handler([] { return 0; });
        gateway.start();
        story_app app = gateway.connect();
        sim::test_thread stopper = world.spawn("stopper", [] { engr_lan_pro_cntl_exit(); });
        for (uint32_t number = 1; number <= 3; ++number) {
            app.send_encrypted(number, handled_type, "{}");
        }
        int answers = 0;
        while (app.receive(100)) {
            ++answers;
        }
        stopper.join();
        EXPECT_EQ(answers, handled) << "expected an answer to each frame that was begun";
        EXPECT_FALSE(world.log().has(0, "is fault")) << "expected no client to be marked faulty";
        answered += answers;
        unanswered += 3 - answers;
    };
    sim::expect_all_seeds(400, story, impatient);
    EXPECT_GT(answered, 0) << "expected some stops after a frame";
    EXPECT_GT(unanswered, 0) << "expected some stops before a frame";
}

TEST(agent_life, a_stop_during_a_frame_leaves_the_frames_behind_it_alone) {
    sim::world world;
    {
        story_gateway gateway(world);
        set_handler([] {
            while (!agent_is_stopping()) {
                kelo_hal_system_delay(1);
            }
            return 0;
        });
        gateway.start();
        story_app app = gateway.connect();
        const std::string frame =
            lan_client::encode_request(1, handled_type, lan_client::encrypt(app.key, "{}"));
        app.peer.send(frame + frame);
        world.run_for(10);
        gateway.stop();
        EXPECT_EQ(handled, 1) << "expected no frame to be begun once a stop has begun";
        EXPECT_TRUE(app.receive(100)) << "expected an answer to the frame that was begun";
        EXPECT_FALSE(app.receive(100));
    }
    EXPECT_TRUE(world.finish().empty());
}

/** Runs all schedules of a story with up to two preemptions, and records how many there were. */
void expect_every_schedule(const sim::story &story, uint32_t preemptions_max = 2) {
    sim::options chosen = sim::with_environment({.quiet_points = false});
    chosen.steps_without_time_max = 2'000;
    sim::search_bounds bounds{.preemptions_max = preemptions_max};
    bounds.runs_max = chosen.decisions.empty() ? bounds.runs_max : 1;
    const sim::search_result found =
        sim::try_all_schedules(story, bounds, chosen, sim::no_failure_yet);
    sim::report(found, true);
    EXPECT_TRUE(found.failure || found.complete || !chosen.decisions.empty());
    testing::Test::RecordProperty("schedules", std::to_string(found.runs));
    std::printf("%llu schedules\n", static_cast<unsigned long long>(found.runs));
}

service_life *life; // of the stories below
int claims;
int releases;

void start_once() {
    if (life->begin_start() == transition::claimed) {
        EXPECT_EQ(++claims, 1) << "expected one start at a time";
        kelo_hal_system_delay(2);
        --claims;
        life->end_start(true);
    }
}

void stop_once() {
    if (life->begin_stop() == transition::claimed) {
        EXPECT_EQ(++claims, 1) << "expected one stop at a time";
        life->end_stop([] {
            ++releases;
            --claims;
        });
    }
}

/** Lets the acts run beside each other; a pause between two looks takes a millisecond. */
void run_beside(sim::world &world, const std::vector<void (*)()> &acts) {
    service_life one;
    life = &one;
    claims = 0;
    releases = 0;
    {
        std::vector<sim::test_thread> threads;
        for (const auto act : acts) {
            threads.push_back(world.spawn("thread", act));
        }
    }
    const uint64_t polls = world.calls("kelo_hal_system_delay");
    EXPECT_LE(polls, acts.size() * (world.now_ms() + 1)) << "expected a pause after each poll";
    EXPECT_EQ(claims, 0) << "expected every start and stop to end";
    stop_once();
    EXPECT_EQ(one.state(), life_state::stopped);
}

void visit_and(void (*act)()) {
    const service_use use(*life);
    if (use) {
        EXPECT_EQ(releases, 0) << "expected nothing to be released under a user";
        kelo_hal_system_delay(1);
        act();
        EXPECT_EQ(releases, 0) << "expected nothing to be released under a user";
    }
}

TEST(service_life_schedules, two_starts_at_once) {
    expect_every_schedule([](sim::world &world) {
        run_beside(world, {start_once, start_once});
        EXPECT_LE(world.now_ms(), 3U) << "expected a look at a start of 2 ms every millisecond";
        EXPECT_EQ(releases, 1);
    });
}

TEST(service_life_schedules, stop_during_a_start_and_a_stop_from_inside_a_callback) {
    expect_every_schedule([](sim::world &world) {
        run_beside(world, {start_once, [] { visit_and(stop_once); }, stop_once});
    });
}

TEST(service_life_schedules, start_and_stop_from_inside_two_callbacks) {
    expect_every_schedule([](sim::world &world) {
        run_beside(world, {start_once, [] { visit_and(stop_once); },
                           [] { visit_and([] { static_cast<void>(life->begin_start()); }); }});
    });
}

int stop_and_start(const char * /*ssid*/, const char * /*passwd*/, const char * /*token*/) {
    engr_lan_ap_nw_cfg_stop();
    engr_lan_ap_nw_cfg_start(stop_and_start);
    return 0;
}

TEST(listener_schedules, stop_during_a_datagram_whose_callback_stops_and_starts) {
    expect_every_schedule([](sim::world &world) {
        constexpr uint16_t config_port = 6669;
        sim::udp_peer app = world.open_udp(0);
        ASSERT_EQ(engr_lan_ap_nw_cfg_start(stop_and_start), 0);
        app.send(config_port,
                 lan_client::encode_request(0, FRM_AP_NW_CFG, R"({"ssid":"s","token":"t"})"));
        engr_lan_ap_nw_cfg_stop();
        world.run_until_idle();
        engr_lan_ap_nw_cfg_stop();
    });
}

TEST(agent_schedules, stop_while_the_worker_starts) {
    expect_every_schedule(
        [](sim::world &world) {
            story_gateway gateway(world);
            EXPECT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0);
            sim::test_thread stopper = world.spawn("stopper", [] { engr_lan_pro_cntl_exit(); });
            engr_lan_pro_cntl_exit();
        },
        0);
}

} // namespace
