/* Start and stop against each other, under every schedule of short stories: nobody hangs, nobody
 * spins, and every frame that was begun gets its answer. */
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

/** Few steps without time moving, so that whoever polls without a pause is found. */
const sim::options impatient = {.steps_without_time_max = 20'000};

TEST(agent_life, a_stop_before_the_worker_begins_hangs_no_handler_that_stops_or_starts) {
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

TEST(agent_life, a_frame_that_was_begun_is_answered_and_none_is_begun_after_a_stop) {
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
        EXPECT_FALSE(world.log().has(0, "is fault")) << "expected no sound client to be blamed";
        answered += answers;
        unanswered += 3 - answers;
    };
    sim::expect_all_seeds(400, story, impatient);
    EXPECT_GT(answered, 0) << "expected stops behind a frame, too";
    EXPECT_GT(unanswered, 0) << "expected stops before a frame, too";
}

} // namespace
