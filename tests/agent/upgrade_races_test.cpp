/* Ends of an upgrade that race with each other: each transfer has one outcome, whatever happens. */
#include "platform/clock.h"
#include "transport/frame_types.h"
#include "upgrade/upgrade_state.h"
#include "upgrade/upgrade_worker.h"
#include "upgrade_story.h"

namespace {

void expect_one_outcome_each() {
    for (const started_transfer &one : service.transfers) {
        EXPECT_LE(one.outcomes.size(), 1U)
            << "expected at most one outcome for each transfer: " << service.outcome_of_each();
    }
}

TEST(upgrade_races, one_transfer_has_one_outcome) {
    sim::expect_all_seeds(2000, [](sim::world &world) {
        variants chance(world);
        upgrade_gateway gateway(world);
        gateway.start();
        story_app app = gateway.connect();
        story_app other = gateway.connect();
        const bool reports_inside = chance.one_in(3);
        const bool restarts_inside = chance.one_in(7);
        const bool stops_inside = chance.one_in(11);
        const uint64_t installation_ms = chance.below(3);
        service.in_outcome = [&](int) {
            world.run_for(installation_ms);
            if (reports_inside) {
                engr_lan_gw_subdevice_update("lamp", "2", 0, 0, 0);
            }
            if (restarts_inside && service.transfers.size() < 3) {
                service.start_transfer();
            }
            if (stops_inside) {
                engr_lan_pro_cntl_exit();
            }
        };
        begin_upgrade(app, 8);
        app.ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
        const auto moment = static_cast<uint32_t>(chunk_watchdog_ms - 2 + chance.below(4));
        std::vector<sim::test_thread> threads;
        const auto at_the_moment = [&](uint64_t one_in, const char *name, auto act) {
            if (chance.one_in(one_in)) {
                threads.push_back(world.spawn(name, [moment, act] {
                    kelo_hal_system_delay(moment);
                    act();
                }));
            }
        };
        // What meets the watchdog.
        at_the_moment(1, "chunks", [&] { app.send(7, FRM_DOWNLOAD_FIRMWARE, chunk(4, "efgh")); });
        at_the_moment(2, "breaker", [&] { other.peer.reset(); });
        at_the_moment(3, "starter", [&] { service.start_transfer(); });
        at_the_moment(5, "reporter", [&] {
            engr_lan_gw_subdevice_update("lamp", "2", 0, 0, 0);
            service.start_transfer();
        });
        at_the_moment(5, "next app", [&] {
            app.send_encrypted(8, FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":3})");
            app.send(9, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
        });
        at_the_moment(13, "stopper", [&] { engr_lan_pro_cntl_exit(); });
        threads.clear(); // waits for their ends
        world.run_for(2 * outcome_watchdog_ms);
        expect_one_outcome_each();
        world.log().clear();
        world.run_for(outcome_watchdog_ms);
        EXPECT_FALSE(world.log().has("upgrade timeout!"))
            << "expected no watchdog to be left armed";
        upgrade_end_by_version();
    });
}

// What the server task does in the stories below, without the server.

void last_chunk_arrives() {
    lan_upg_mgr_t manager{};
    if (upgrade_admit_chunk(manager) == chunk_admission::admitted && upgrade_decide(manager)) {
        upgrade_arm_watchdog(manager, outcome_watchdog_ms);
        __lan_upgrade_nofity(manager, 0);
    }
}

void chunk_arrives() {
    lan_upg_mgr_t manager{};
    if (upgrade_admit_chunk(manager) == chunk_admission::admitted) {
        upgrade_arm_watchdog(manager, chunk_watchdog_ms);
    }
}

void bad_chunk_arrives() {
    lan_upg_mgr_t manager{};
    if (upgrade_admit_chunk(manager) == chunk_admission::admitted) {
        if (upgrade_decide(manager)) {
            upgrade_tell_outcome(manager, 1);
        }
        upgrade_end(manager);
    }
}

void connection_is_lost_and_the_next_upgrade_begins() {
    if (update_stat == 1) {
        upgrade_lost_connection();
    }
    if (update_stat == 0) {
        upgrade_begin();
        chunk_arrives();
    }
}

void start_is_refused() {
    upgrade_refuse();
}

void service_restarts() {
    service.start_transfer();
}

void version_is_reported() {
    engr_lan_gw_subdevice_update("lamp", "2", 0, 0, 0);
}

void version_is_reported_and_service_restarts() {
    version_is_reported();
    service_restarts();
}

void nothing() {}

TEST(upgrade_races, two_ends_at_once_give_each_transfer_one_outcome_under_all_schedules) {
    using act = void (*)();
    const act on_the_server_task[] = {last_chunk_arrives, chunk_arrives, bad_chunk_arrives,
                                      connection_is_lost_and_the_next_upgrade_begins,
                                      start_is_refused};
    const act elsewhere[] = {service_restarts, version_is_reported,
                             version_is_reported_and_service_restarts, nothing};
    uint64_t runs = 0;
    for (const act server : on_the_server_task) {
        for (const act other : elsewhere) {
            const auto story = [server, other](sim::world &world) {
                upgrade_gateway gateway(world);
                service.offered.file_size = 4;
                ASSERT_EQ(upgrade_create(), 0);
                upgrade_begin();
                service.start_transfer();
                // Without another act, the watchdog races with the server task.
                world.run_for(other == nothing ? chunk_watchdog_ms - 1 : 1);
                {
                    const auto in_a_moment = [](act what) {
                        return [what] {
                            kelo_hal_system_delay(1);
                            what();
                        };
                    };
                    const sim::test_thread one = world.spawn("server", in_a_moment(server));
                    const sim::test_thread two = world.spawn("other", in_a_moment(other));
                }
                world.run_for(2 * outcome_watchdog_ms);
                expect_one_outcome_each();
                if (other == service_restarts ||
                    other == version_is_reported_and_service_restarts) {
                    EXPECT_EQ(service.transfers.back().outcomes.size(), 1U)
                        << "expected an outcome of the transfer started last";
                }
                upgrade_end_by_version();
                upgrade_release();
            };
            const sim::search_result found =
                sim::try_all_schedules(story, {.preemptions_max = preemptions_to_search()},
                                       {.quiet_points = false}, sim::no_failure_yet);
            sim::report(found, true);
            ASSERT_TRUE(found.complete) << "expected all schedules to pass";
            runs += found.runs;
        }
    }
    RecordProperty("schedules", static_cast<int>(runs));
    std::printf("%llu schedules\n", static_cast<unsigned long long>(runs));
}

TEST(upgrade_races, an_expiry_ends_nothing_that_a_chunk_has_kept_alive) {
    uint64_t overtaken = 0;
    uint64_t in_time = 0;
    const auto story = [&](sim::world &world) {
        upgrade_gateway gateway(world);
        service.offered.file_size = 8;
        ASSERT_EQ(upgrade_create(), 0);
        upgrade_begin();
        service.start_transfer();
        bool is_admitted = false;
        sim::begin_race();
        {
            const sim::test_thread server = world.spawn("server", [&] {
                kelo_hal_system_delay(chunk_watchdog_ms);
                lan_upg_mgr_t manager{};
                is_admitted = upgrade_admit_chunk(manager) == chunk_admission::admitted;
                if (is_admitted) {
                    upgrade_arm_watchdog(manager, chunk_watchdog_ms);
                }
            });
        }
        sim::end_race();
        (is_admitted ? overtaken : in_time) += 1;
        world.run_for(chunk_watchdog_ms / 2);
        EXPECT_EQ(update_stat == 1, is_admitted);
        EXPECT_EQ(service.outcome_of_each(), is_admitted ? "-" : "1");
        upgrade_end_by_version();
        upgrade_release();
    };
    const sim::search_result found = sim::try_all_schedules(
        story, {.preemptions_max = preemptions_to_search(), .whole_story = false}, {},
        sim::no_failure_yet);
    sim::report(found, true);
    EXPECT_TRUE(found.complete) << "expected all schedules to pass";
    EXPECT_GT(overtaken, 0U) << "expected a chunk that comes before the expiry";
    EXPECT_GT(in_time, 0U) << "expected a chunk that comes after the expiry";
}

TEST(upgrade_races, the_outcome_may_stop_the_agent_on_whatever_thread_it_arrives) {
    sim::expect_all_seeds(60, [](sim::world &world) {
        upgrade_gateway gateway(world);
        gateway.start();
        story_app app = gateway.connect();
        service.in_outcome = [](int) { EXPECT_EQ(engr_lan_pro_cntl_exit(), 0); };
        begin_upgrade(app, 8);
        switch (variants(world).below(4)) {
        case 0: // on the worker
            app.send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcdefgh"));
            break;
        case 1: // in the timer context
            break;
        case 2: // on the server task
            app.send(7, FRM_DOWNLOAD_FIRMWARE, chunk(9, ""));
            break;
        default: // on the worker, after a lost connection
            app.peer.close();
        }
        world.run_for(chunk_watchdog_ms + 100);
        EXPECT_EQ(service.outcomes(), 1U);
        EXPECT_EQ(update_stat, 0);
        gateway.start();
        EXPECT_EQ(gateway.connect().ask(FRM_KEEPALIVE), "9/0/0/")
            << "expected the agent to start again";
    });
}

TEST(upgrade_races, an_agent_started_while_an_old_upgrade_ends_keeps_its_record) {
    sim::expect_all_seeds(1000, [](sim::world &world) {
        upgrade_gateway gateway(world);
        gateway.start();
        service.in_outcome = [&](int) { world.run_for(10); };
        story_app app = gateway.connect();
        begin_upgrade(app, 4);
        app.send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
        world.run_for(5);
        gateway.stop();
        world.run_for(3 + variants(world).below(4));
        gateway.start();
        world.run_for(20);
        service.in_outcome = nullptr;
        story_app next = gateway.connect();
        EXPECT_NE(begin_upgrade(next, 4).find("downloadSize"), std::string::npos)
            << "expected the next upgrade to start";
        next.ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
        world.run_for(100);
        EXPECT_EQ(service.outcomes(), 2U);
    });
}

} // namespace
