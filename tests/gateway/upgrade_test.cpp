// The upgrade service under the agent: complete transfers, refusals, and every way to fail, after
// which the old version is in place and the next try works.
#include "upgrade_story.h"

#include "gateway_services/error.h"
#include "platform/clock.h"

namespace {

using testing::HasSubstr;

struct upgrade_service : sim::test {};

TEST_F(upgrade_service, takes_images_in_the_chunks_it_asked_for) {
    const struct {
        const char *options;
        offer what;
        const char *requests;
        std::vector<int> percents;
    } transfers[] = {
        {"{}", image_of(1), "0+1 1+0", {50}},
        {"{}", image_of(524'289), "0+524288 524288+1 524289+0", {98, 98}},
        {R"({"chunk_size": 4})", image_of(10), "0+4 4+4 8+2 10+0", {36, 72, 90}},
        {R"({"chunk_size": 4, "remain_len": 1})", image_of(8), "0+4 3+4 6+2 8+0", {33, 66, 88}},
        {R"({"chunk_size": 2, "remain_len": 9})", image_of(4), "0+2 1+2 2+2 4+0", {20, 40, 80}},
        {R"({"rpt_percent": 0})", image_of(3, "lamp"), "0+3 3+0", {}},
        {R"({"install_ms": 0})", image_of(3, "lamp"), "0+3 3+0", {75, 99, 100}},
    };
    for (const auto &transfer : transfers) {
        SCOPED_TRACE(transfer.options);
        upgrade_story story(world, transfer.options);
        upgrade_app app = story.connect();
        EXPECT_EQ(app.offer_image(transfer.what), "230/7/0/");
        EXPECT_EQ(app.serve(transfer.what.bytes), transfer.requests);
        EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
        EXPECT_EQ(app.next_request(), "nothing");
        EXPECT_EQ(app.percents, transfer.percents);
        const std::string report = R"(233{"firmwareType":10, "cid":"lamp", "softVer":"2.0.1"})";
        EXPECT_EQ(app.others, transfer.what.cid.empty() ? std::vector<std::string>{}
                                                        : std::vector<std::string>{report});
        EXPECT_EQ(version_of(transfer.what.cid), "2.0.1");
        EXPECT_EQ(engr_get_gw_ext_stat(), GW_EXT_STAT_UPGRADE_ENDED);
        story.succeed({.version = "2.0.2"});
    }
}

TEST_F(upgrade_service, leaves_its_callbacks_in_the_trace) {
    upgrade_story story(world, R"({"chunk_size": 2})");
    const offer what{.bytes = "a\"c", .cid = "lamp"};
    story.succeed(what);
    const std::string record =
        R"("record": {"fw_kind": 3, "sw_ver": "2.0.1", "file_size": 3, "file_md5": ")" + what.md5 +
        "\"}";
    std::vector<std::string> traced;
    for (const std::string &line : story.gateway.trace) {
        if (line.find("record") != std::string::npos) {
            traced.push_back(line);
        }
    }
    EXPECT_THAT(traced, testing::ElementsAre(
                            R"({"call": "dev_lan_ug_cb", "args": {"dev_id": "lamp", )" + record +
                                R"(}, "result": 0})",
                            R"({"call": "get_file_cb", "args": {)" + record +
                                R"(, "total_size": 3, "offset": 0, "data": "a\""}, "result": 0})",
                            R"({"call": "get_file_cb", "args": {)" + record +
                                R"(, "total_size": 3, "offset": 2, "data": "c"}, "result": 0})",
                            R"({"call": "ug_notify_cb", "args": {)" + record +
                                R"(, "result": 0}, "result": 0})"));
}

TEST_F(upgrade_service, refuses_what_it_cannot_install_and_says_why) {
    const struct {
        const char *options;
        offer what;
        const char *reason;
    } offers[] = {
        {R"({"refuse_same_version": 1})", {.version = "1.0.0"}, "is installed already"},
        {"{}", {.version = ""}, "has no version"},
        {"{}", {.version = "a\"b"}, "version may hold neither a double quote"},
        {"{}", {.cid = "nosuch"}, "nosuch"},
        {"{}", image_of(64 * 1024 * 1024 + 1), "there is no room for an image of 67108865 bytes"},
    };
    for (const auto &each : offers) {
        SCOPED_TRACE(each.reason);
        upgrade_story story(world, each.options);
        upgrade_app app = story.connect();
        EXPECT_EQ(app.offer_image(each.what), "230/7/0/");
        EXPECT_THAT(app.app.receive_text(), testing::MatchesRegex("230/7/1/.*_lan_ug_cb error"));
        EXPECT_EQ(upgrade_state(), "refused");
        EXPECT_THAT(upgrade_status()["reason"], HasSubstr(each.reason));
        story.succeed({});
    }
}

TEST_F(upgrade_service, keeps_the_old_version_when_an_upgrade_fails_and_takes_the_next_one) {
    using app_does = void (*)(upgrade_app &, sim::world &);
    const struct {
        const char *options;
        app_does act;
        const char *reason;
    } failures[] = {
        {"{}", [](upgrade_app &a, sim::world &) { a.serve("012345678X"); },
         "the image is damaged: its MD5 is "},
        {R"({"chunk_size": 4})",
         [](upgrade_app &a, sim::world &) {
             a.app.send(0, frame_type::download_firmware, chunk_of("67", 6));
         },
         "bytes 6 to 8 came, wanted were those from 0 to at most 10"},
        {R"({"chunk_size": 4})",
         [](upgrade_app &a, sim::world &) {
             a.app.send(0, frame_type::download_firmware, chunk_of("0123", 0));
             a.app.send(0, frame_type::download_firmware, chunk_of("12", 1));
         },
         "bytes 1 to 3 came, wanted were those from 4 to at most 10"},
        {"{}",
         [](upgrade_app &a, sim::world &) {
             a.app.send(0, frame_type::download_firmware, chunk_of("", 0));
         },
         "bytes 0 to 0 came"},
        {"{}",
         [](upgrade_app &a, sim::world &) {
             a.app.send(0, frame_type::download_firmware, chunk_of("0123456789X", 0));
         },
         "bytes 0 to 11 came"},
        {"{}",
         [](upgrade_app &a, sim::world &) {
             a.app.send(0, frame_type::download_firmware, chunk_of("9", 4000));
         },
         "the app left, fell silent or sent more than the image"},
        {"{}", [](upgrade_app &a, sim::world &) { a.app.peer.close(); }, "the app left"},
        {"{}", [](upgrade_app &, sim::world &w) { w.run_for(40'001); }, "fell silent"},
        {R"({"fail_at": 10, "chunk_size": 4})",
         [](upgrade_app &a, sim::world &) { a.serve(std::string(11, '0')); },
         "byte 10 cannot be taken"},
    };
    for (const auto &each : failures) {
        SCOPED_TRACE(each.reason);
        upgrade_story story(world, each.options);
        {
            upgrade_app app = story.connect();
            const bool is_longer = std::string_view(each.reason).starts_with("byte 10");
            EXPECT_EQ(app.offer_image({.bytes = is_longer ? "01234567890" : "0123456789"}),
                      "230/7/0/");
            EXPECT_TRUE(comes_to(world, {"receiving"}));
            each.act(app, world);
            EXPECT_TRUE(comes_to(world, {"failed"})) << upgrade_status();
        }
        EXPECT_THAT(upgrade_status()["reason"], HasSubstr(each.reason));
        EXPECT_TRUE(world.log().has(0, upgrade_status()["reason"].get<std::string>()));
        EXPECT_EQ(version_of(""), "1.0.0");
        story.succeed({});
    }
}

TEST_F(upgrade_service, refuses_a_second_image_while_one_is_installed) {
    upgrade_story story(world, R"({"install_ms": 130000})");
    upgrade_app app = story.connect();
    app.offer_image({.version = "3", .cid = "lamp"});
    app.serve("0123456789");
    world.run_for(121'000);
    upgrade_app other = story.connect();
    EXPECT_EQ(other.offer_image({.version = "4"}), "230/7/0/")
        << "the agent has given up waiting for the installation";
    EXPECT_EQ(other.app.receive_text(), "230/7/1/gw_lan_ug_cb error");
    EXPECT_EQ(upgrade_state(), "installing");
    EXPECT_THROW(gateway::start_upgrade({}), gateway::refused);
    EXPECT_TRUE(comes_to(world, {"installed"}));
    EXPECT_EQ(version_of("lamp"), "3");
    EXPECT_EQ(version_of(""), "1.0.0");
    story.succeed({.version = "4"});
}

TEST_F(upgrade_service, starts_a_transfer_by_itself) {
    upgrade_story story(world, R"({"never_start": true, "install_ms": 0})");
    upgrade_app app = story.connect();
    const offer what = image_of(10, "lamp");
    EXPECT_EQ(app.offer_image(what), "230/7/0/");
    EXPECT_EQ(app.next_request(), "nothing");
    EXPECT_EQ(upgrade_state(), "offered");
    EXPECT_EQ(gateway::start_upgrade({.chunk_size = 5, .percent = false, .remain = 1}), 0);
    EXPECT_EQ(app.next_request(), "0+5");
    app.app.send(0, frame_type::download_firmware, chunk_of(what.bytes.substr(0, 5), 0));
    EXPECT_EQ(app.next_request(), "4+5");
    EXPECT_EQ(gateway::start_upgrade({}), 0) << "a second one begins anew";
    EXPECT_EQ(app.serve(what.bytes), "0+10 10+0");
    EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
    EXPECT_EQ(version_of("lamp"), "2.0.1");
    EXPECT_EQ(gateway::start_upgrade({.cid = "gw0001", .file_size = 3}), 0);
    EXPECT_EQ(app.next_request(), "0+3");
    EXPECT_TRUE(comes_to(world, {"failed"})) << "no upgrade is under way, so no chunk is taken";
    gateway::set_callback("ug_notify_cb", gateway::callback_mode::absent);
    EXPECT_EQ(gateway::start_upgrade({}), ENGR_ERR_ARGUMENT);
    EXPECT_TRUE(world.log().has(0, "the transfer cannot be started: result -2"));
}

TEST_F(upgrade_service, keeps_what_it_receives_when_another_start_is_not_accepted) {
    upgrade_story story(world, R"({"chunk_size": 5, "install_ms": 0})");
    upgrade_app app = story.connect();
    const offer what{.cid = "lamp"};
    app.offer_image(what);
    EXPECT_EQ(app.next_request(), "0+5");
    gateway::set_callback("ug_notify_cb", gateway::callback_mode::absent);
    EXPECT_EQ(gateway::start_upgrade({.cid = "gw0001", .file_size = 3}), ENGR_ERR_ARGUMENT);
    EXPECT_EQ(upgrade_status()["device"], "lamp");
    gateway::set_callback("ug_notify_cb", gateway::callback_mode::present);
    app.app.send(0, frame_type::download_firmware, chunk_of("01234", 0));
    EXPECT_EQ(app.serve(what.bytes), "5+5 10+0");
    EXPECT_TRUE(comes_to(world, {"installed"})) << upgrade_status();
    EXPECT_EQ(version_of("lamp"), what.version);
}

/** Runs a story on some seeds for each of the delays, in ms. */
void expect_all_delays(std::initializer_list<uint32_t> delays_ms,
                       const std::function<void(sim::world &, uint32_t delay_ms)> &story) {
    for (const uint32_t delay_ms : delays_ms) {
        SCOPED_TRACE("delay " + std::to_string(delay_ms) + " ms");
        sim::expect_all_seeds(40, [&](sim::world &world) { story(world, delay_ms); });
    }
}

/** An offer whose app leaves some time after the request to start it. */
void expect_offer_leaves_nothing(sim::world &world, bool is_started, uint32_t delay_ms) {
    upgrade_story story(world, is_started ? "{}" : R"({"never_start": true})");
    {
        upgrade_app app = story.connect();
        const nlohmann::json told{{"swVer", "3"}, {"fileSize", 10}, {"fileMd5", md5_of("")}};
        app.app.ask(frame_type::chk_soft_ver, told.dump(), true);
        app.app.send_encrypted(7, frame_type::dev_upgrade, R"({"cid":"","firmwareType":0})");
        world.run_for(delay_ms);
        app.app.peer.close();
    }
    world.run_for(41'000);
    const std::string state = upgrade_state();
    EXPECT_TRUE(state == "failed" || state == "idle") << state;
    story.succeed({.version = "4"}, is_started);
}

TEST(upgrade_service_offers, that_end_before_their_transfer_leave_nothing) {
    for (const bool is_started : {false, true}) {
        SCOPED_TRACE(is_started ? "started" : "never started");
        expect_all_delays({0, 1, 2}, [&](sim::world &world, uint32_t delay_ms) {
            expect_offer_leaves_nothing(world, is_started, delay_ms);
        });
    }
}

TEST(upgrade_service_races, have_one_end_each_and_leave_a_gateway_that_takes_the_next_image) {
    expect_all_delays({0, 10, 20, 30, 40, 50, 60}, [](sim::world &world, uint32_t delay_ms) {
        upgrade_story story(world, R"({"chunk_size": 4, "install_ms": 50})");
        {
            upgrade_app app = story.connect();
            app.offer_image({.version = "3", .cid = "lamp"});
            auto leaver = world.spawn("leaver", [&] {
                kelo_hal_system_sleep(delay_ms);
                app.app.peer.close();
            });
            app.serve("0123456789");
        }
        EXPECT_TRUE(comes_to(world, {"failed", "installed"})) << upgrade_status();
        EXPECT_EQ(version_of("lamp"), upgrade_state() == "failed" ? "" : "3");
        world.run_for(1000);
        story.succeed({.version = "4"});
        size_t outcomes = 0;
        for (const std::string &line : story.gateway.trace) {
            outcomes += line.find("ug_notify_cb") != std::string::npos ? 1 : 0;
        }
        EXPECT_LE(outcomes, 2U);
    });
}

} // namespace
