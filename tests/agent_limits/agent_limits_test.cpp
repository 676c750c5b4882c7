/* An agent built for a board with little memory: a frame limit of 2048 bytes, and 64 JSON values.
 */
#include "transport/frame_types.h"
#include "upgrade_story.h"

namespace {

constexpr size_t frame_limit = 2048;
constexpr size_t overhead = 24;

struct small_limits : sim::test {
    small_limits() : gateway(world) {
        gateway.start();
        app.emplace(gateway.connect());
    }

    upgrade_gateway gateway;
    std::optional<story_app> app;
};

TEST_F(small_limits, refuse_a_frame_of_the_limit_and_take_a_smaller_one) {
    app->send(3, FRM_DEV_LIST, std::string(frame_limit - 1 - overhead, 'x'));
    EXPECT_EQ(app->receive_text().substr(0, 6), "241/3/");
    EXPECT_FALSE(world.log().has("lan data len is out of limit"));
    app->peer.send(
        lan_client::encode_request(4, FRM_DEV_LIST, std::string(frame_limit - overhead, 'x'))
            .substr(0, 500));
    world.run_until_idle();
    EXPECT_TRUE(world.log().has(0, "lan data len is out of limit"));
    EXPECT_EQ(app->ask(FRM_DEV_LIST).substr(0, 6), "241/7/")
        << "expected the connection to stay open";
}

TEST_F(small_limits, ask_for_pieces_of_an_image_that_fit_into_a_frame) {
    for (const uint32_t wanted : {0U, 5000U}) {
        service.chunk_size = wanted;
        const std::string image(4038, 'i');
        EXPECT_NE(begin_upgrade(*app, 4038).find(R"("offset":0,"downloadSize":2019)"),
                  std::string::npos);
        EXPECT_NE(app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, image.substr(0, 2019)))
                      .find(R"("offset":2019,"downloadSize":2019)"),
                  std::string::npos);
        EXPECT_NE(app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(2019, image.substr(2019)))
                      .find(R"("offset":4038,"downloadSize":0)"),
                  std::string::npos);
        world.run_for(1000);
        EXPECT_EQ(service.outcomes(), wanted == 0 ? 1U : 2U)
            << "expected the whole image to arrive";
    }
}

TEST_F(small_limits, refuse_a_request_with_more_values_than_the_limit) {
    const auto with_numbers = [](size_t numbers) {
        std::string text = R"({"cid":"","more":[0)"; // 3 values beside the numbers
        for (size_t number = 1; number < numbers; ++number) {
            text += ",0";
        }
        return text + "]}";
    };
    EXPECT_NE(app->ask(FRM_DEL_SUB_DEV, with_numbers(61), true), "242/7/1/data format error");
    EXPECT_EQ(app->ask(FRM_DEL_SUB_DEV, with_numbers(62), true), "242/7/1/data format error");
}

} // namespace
