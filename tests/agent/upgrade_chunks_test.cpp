/* What the upgrade service gets of an image, byte for byte, and how a chunk's end is logged. */
#include "transport/frame_types.h"
#include "upgrade_story.h"

namespace {

/** An upgrade service that keeps the bytes it gets. */
struct upgrade_chunks : sim::test {
    upgrade_chunks() : gateway(world) {
        gateway.start();
        service.starts_transfer = false;
        app.emplace(gateway.connect());
        begin();
    }

    ~upgrade_chunks() override {
        app->peer.close(); // ends what is under way
        world.run_for(100);
    }

    void begin() {
        begin_upgrade(*app, 10);
        world.run_until_idle();
    }

    void start_transfer(uint32_t chunk_size) {
        EXPECT_EQ(lan_gw_start_upgrade(
                      nullptr, &service.offered, &take, this,
                      [](lan_fw_info_t *, int, void *) { return 0; }, 0, chunk_size),
                  0);
    }

    static int take(lan_fw_info_t *, uint32_t, uint32_t, const uint8_t *data, uint32_t length,
                    uint32_t *remain_len, void *self) {
        auto &test = *static_cast<upgrade_chunks *>(self);
        test.received.append(reinterpret_cast<const char *>(data), length);
        test.told_remain_len = *remain_len;
        return 0;
    }

    upgrade_gateway gateway;
    std::optional<story_app> app;
    std::string received;
    uint32_t told_remain_len = 1;
};

TEST_F(upgrade_chunks, reach_the_service_byte_for_byte_and_are_asked_for_in_turn) {
    const std::string six_bytes("01\0\xFF"
                                "45",
                                6);
    start_transfer(6);
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":0,"downloadSize":6})");
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, six_bytes)),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":6,"downloadSize":4})");
    EXPECT_EQ(told_remain_len, 0U) << "expected a service that hands nothing back to need no store";
    world.run_until_idle();
    EXPECT_EQ(world.log().count(4, "download end"), 1U);
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(6, "6789")),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":10,"downloadSize":0})");
    world.run_until_idle();
    EXPECT_EQ(received, six_bytes + "6789");
    EXPECT_EQ(world.log().count(4, "download end"), 2U);
    EXPECT_TRUE(world.log().has(4, "download firmware success"));
}

TEST_F(upgrade_chunks, have_half_a_megabyte_by_default_and_what_the_service_wants) {
    announce(*app, 4'000'000);
    service.offered.file_size = 4'000'000;
    start_transfer(0);
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":0,"downloadSize":524288})");
    start_transfer(3'000'000);
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":0,"downloadSize":3000000})");
}

TEST_F(upgrade_chunks, of_a_shorter_version_leave_nothing_of_a_longer_one) {
    app->peer.close();
    world.run_for(100);
    app.emplace(gateway.connect());
    announce(*app, 10, "2.0.1.long");
    announce(*app, 10, "3");
    EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":0})", true), "230/7/0/");
    world.run_until_idle();
    EXPECT_EQ(std::string(service.offered.sw_ver, sizeof service.offered.sw_ver),
              "3" + std::string(sizeof service.offered.sw_ver - 1, '\0'));
}

} // namespace
