/* What each event makes of each phase of an upgrade, and what becomes of its transfers. */
#include "gateway/gateway.h"
#include "transport/frame_types.h"
#include "upgrade/upgrade_state.h"
#include "upgrade_story.h"

namespace {

struct upgrade_phases : sim::test {
    upgrade_phases() : gateway(world) {
        gateway.start();
        app.emplace(gateway.connect());
        other.emplace(gateway.connect());
    }

    /** Brings the upgrade into a phase. */
    void reach(const std::string &phase) {
        service.take_calls();
        service.transfers.clear();
        service.in_outcome = nullptr;
        service.starts_transfer = phase != "offered";
        if (phase == "idle") {
            announce(*app, 4);
        } else if (phase == "transfer_only") {
            announce(*app, 4);
            EXPECT_EQ(service.start_transfer(), 0);
            app->peer.receive_available();
        } else {
            begin_upgrade(*app, 4);
        }
        if (phase == "reporting") {
            service.in_outcome = [this](int) {
                service.in_outcome = nullptr;
                world.run_for(outcome_watchdog_ms + 10'000);
            };
            app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
            world.run_until_idle();
        }
        world.run_until_idle();
        engr_set_gw_ext_stat(0);
    }

    void happen(const std::string &event) {
        if (event == "an upgrade of another type is started") {
            app->ask(FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":3})", true);
        } else if (event == "a start without members") {
            app->ask(FRM_DEV_UPGRADE, "{}", true);
        } else if (event == "a start that is not JSON") {
            app->ask(FRM_DEV_UPGRADE, "{not json}", true);
        } else if (event == "the service starts a transfer") {
            EXPECT_EQ(service.start_transfer(), 0);
        } else if (event == "a chunk arrives") {
            app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "ab"));
        } else if (event == "an app leaves") {
            other->peer.close();
            world.run_until_idle();
            other.emplace(gateway.connect());
        } else if (event == "a version is reported") {
            EXPECT_EQ(engr_lan_gw_subdevice_update("lamp", "9", 0, 0, 0), 0);
        } else {
            ADD_FAILURE() << "there is no event " << event;
        }
        world.run_until_idle();
    }

    /** Flag and extended state. */
    static std::string state() {
        return std::to_string(update_stat) + "/" + std::to_string(engr_get_gw_ext_stat());
    }

    /** Lets every watchdog and worker come to its end. */
    void settle() {
        for (int i = 0; i < 4; ++i) {
            world.run_for(chunk_watchdog_ms);
            app->send(1, FRM_KEEPALIVE); // a silent app would be closed
            other->send(1, FRM_KEEPALIVE);
        }
        world.run_until_idle();
        app->peer.receive_available();
        other->peer.receive_available();
    }

    upgrade_gateway gateway;
    std::optional<story_app> app;
    std::optional<story_app> other;
};

TEST_F(upgrade_phases,
       every_event_leads_to_the_phase_of_the_table_and_each_transfer_to_one_outcome) {
    constexpr const char *start = "an upgrade of another type is started";
    constexpr const char *empty = "a start without members";
    constexpr const char *not_json = "a start that is not JSON";
    constexpr const char *transfer = "the service starts a transfer";
    constexpr const char *piece = "a chunk arrives";
    constexpr const char *lost = "an app leaves";
    constexpr const char *version = "a version is reported";
    const struct {
        const char *phase;
        const char *event;
        const char *state;    // afterwards
        const char *outcomes; // of each transfer in the end; "-" is nothing
    } cases[] = {
        {"idle", start, "1/0", ""},
        {"idle", empty, "0/2", ""},
        {"idle", not_json, "0/2", ""},
        {"idle", transfer, "0/0", "1"},
        {"idle", piece, "0/2", ""},
        {"idle", lost, "0/0", ""},
        {"idle", version, "0/2", ""},
        {"offered", empty, "1/0", ""},
        {"offered", transfer, "1/0", "1"},
        {"offered", piece, "0/2", ""},
        {"offered", lost, "0/2", ""},
        {"offered", version, "0/2", ""},
        {"receiving", empty, "1/0", "1"},
        {"receiving", transfer, "1/0", "- 1"},
        {"receiving", piece, "1/0", "1"},
        {"receiving", lost, "0/2", "1"},
        {"receiving", version, "0/2", "-"},
        {"reporting", empty, "1/0", "0"},
        {"reporting", transfer, "1/0", "0 1"},
        {"reporting", piece, "1/0", "0"},
        {"reporting", lost, "1/0", "0"},
        {"reporting", version, "0/2", "0"},
        {"transfer_only", start, "1/0", "1"},
        {"transfer_only", empty, "0/2", "1"},
        {"transfer_only", not_json, "0/2", "1"},
        {"transfer_only", transfer, "0/0", "- 1"},
        {"transfer_only", piece, "0/2", "1"},
        {"transfer_only", lost, "0/0", "1"},
        {"transfer_only", version, "0/2", "-"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(std::string(one.phase) + ", then " + one.event);
        reach(one.phase);
        happen(one.event);
        EXPECT_EQ(state(), one.state) << "expected this flag and extended state";
        settle();
        EXPECT_EQ(service.outcome_of_each(), one.outcomes);
        upgrade_end_by_version();
        world.log().clear();
        settle();
        EXPECT_FALSE(world.log().has("upgrade timeout!")) << "expected the watchdog to be off";
    }
}

TEST_F(upgrade_phases, a_transfer_started_during_the_outcome_of_another_outlives_its_upgrade) {
    const struct {
        const char *what;
        std::string last_chunk;
        int chunk_result;
        const char *outcomes;
    } cases[] = {
        {"complete", chunk(0, "abcd"), 0, "0 1"},
        {"too long", chunk(0, "abcdef"), 0, "1 1"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        reach("receiving");
        service.in_outcome = [](int) {
            service.in_outcome = nullptr;
            EXPECT_EQ(service.start_transfer(), 0);
            EXPECT_EQ(state(), "1/0") << "expected the start to change neither";
        };
        app->send(7, FRM_DOWNLOAD_FIRMWARE, one.last_chunk);
        world.run_for(100);
        EXPECT_EQ(state(), "0/2") << "expected the upgrade to end with the transfer before";
        settle();
        EXPECT_EQ(service.outcome_of_each(), one.outcomes);
    }
    // Its outcome is being told when the one of the transfer before comes to its end.
    reach("receiving");
    service.in_outcome = [this](int) {
        sim::world &same = world; // the callback replaces itself
        service.in_outcome = [&same](int) { same.run_for(1'000); };
        EXPECT_EQ(service.start_transfer(), 0);
        same.run_for(100);
    };
    for (int transfer = 0; transfer < 2; ++transfer) {
        app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
        world.run_for(50);
    }
    world.run_for(400);
    EXPECT_EQ(state(), "1/0") << "expected the upgrade to go on with the second transfer";
    settle();
    EXPECT_EQ(state(), "0/2");
    EXPECT_EQ(service.outcome_of_each(), "0 0");

    // A service that replaces the transfer from inside its chunk callback and then refuses the
    // chunk has failed the upgrade, not the new transfer.
    reach("receiving");
    service.chunk_result = -5;
    service.in_chunk = [] { EXPECT_EQ(service.start_transfer(), 0); };
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "ab"));
    world.run_for(100);
    EXPECT_EQ(state(), "0/2");
    settle();
    EXPECT_EQ(service.outcome_of_each(), "- 1");
}

TEST_F(upgrade_phases,
       an_offer_that_fails_after_its_transfer_was_started_leaves_it_to_the_watchdog) {
    announce(*app, 4);
    service.offer_result = -6;
    EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":0})", true), "230/7/0/");
    world.run_until_idle();
    EXPECT_EQ(state(), "0/2");
    EXPECT_EQ(service.outcome_of_each(), "-");
    world.run_for(chunk_watchdog_ms);
    EXPECT_EQ(service.outcome_of_each(), "1");
}

} // namespace
