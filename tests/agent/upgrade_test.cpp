/* The firmware upgrade: its course, and each of its failures. */
#include "gateway/device.h"
#include "transport/frame_types.h"
#include "upgrade/upgrade_progress.h"
#include "upgrade/upgrade_state.h"
#include "upgrade_story.h"

namespace {

constexpr const char *md5 = "0123456789abcdef0123456789abcdef";

struct upgrade : sim::test {
    upgrade() : gateway(world) {
        gateway.start();
        app.emplace(gateway.connect());
    }

    /** Flag, extended state and whether a time-out is still to come, as "0/2/still". */
    std::string state() {
        const std::string now =
            std::to_string(update_stat) + "/" + std::to_string(engr_get_gw_ext_stat());
        world.log().clear();
        for (int i = 0; i < 3; ++i) {
            world.run_for(chunk_watchdog_ms);
            app->send(1, FRM_KEEPALIVE); // a silent app would be closed
        }
        world.run_for(100);
        app->peer.receive_available();
        return now + (world.log().has(1, "upgrade timeout!") ? "/armed" : "/still");
    }

    upgrade_gateway gateway;
    std::optional<story_app> app;
};

TEST_F(upgrade, of_the_gateway_goes_from_announcement_to_outcome) {
    service.rpt_percent = 1;
    EXPECT_EQ(announce(*app, 10, "2.0.1.longer.than.it.may.be"),
              R"(250/7/0/{"updateStatus":0, "updateCid":"", "cid":"gw0001", "softVer":"1.0.0", )"
              R"("upgradeMethodVer":"2.0"})");
    EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":0})", true), "230/7/0/");
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":0,"downloadSize":4})");
    EXPECT_EQ(engr_get_gw_ext_stat(), GW_EXT_STAT_GW_UPGRADING);
    story_app other = gateway.connect();
    EXPECT_NE(announce(other, 10).find(R"("updateStatus":1, "updateCid":"gw0001")"),
              std::string::npos);
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "0123")),
              R"(232/0/0/{"firmwareType":0, "cid":"gw0001", "progress":36})");
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":4,"downloadSize":4})");
    EXPECT_EQ(other.receive_text(), R"(232/0/0/{"firmwareType":0, "cid":"gw0001", "progress":36})");
    service.rpt_percent = 0;
    service.remain_len = 1;
    service.in_outcome = [&](int) {
        EXPECT_EQ(update_stat, 1) << "expected the upgrade to go on while the service installs";
        world.run_for(30'000);
    };
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(4, "45"));
    EXPECT_EQ(app->receive_text(), R"(232/0/0/{"firmwareType":0, "cid":"gw0001", "progress":45})");
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":5,"downloadSize":4})");
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(5, "56789"));
    EXPECT_EQ(app->receive_text(), R"(232/0/0/{"firmwareType":0, "cid":"gw0001", "progress":81})");
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":10,"downloadSize":0})")
        << "expected a chunk that ends with the image to end the transfer, whatever was handed "
           "back";
    world.run_for(29'000);
    EXPECT_EQ(update_stat, 1);
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(5, "56789"));
    world.run_for(2'000);
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.take_calls(), std::string("offer 9 2.0.1.longe 10 ") + md5 +
                                        "; chunk 0+4; chunk 4+2; chunk 5+5; outcome 0");
}

TEST_F(upgrade, of_a_sub_device_ends_with_its_new_version) {
    EXPECT_EQ(app->ask(FRM_DEV_UPGRADE_INFO,
                       R"({"firmwareType":0,"fileSize":2,"fileMd5":"m","cid":"lamp","swVer":"3"})",
                       true),
              R"(229/7/0/{"firmwareType":0, "updateStatus":0, "updateCid":"", )"
              R"("cids":["lamp"], "softVer":""})");
    service.in_outcome = [](int) {
        EXPECT_EQ(engr_lan_gw_subdevice_update("lamp", "3", 10, 0, 0), 0);
        EXPECT_EQ(update_stat, 0);
    };
    EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, R"({"cid":"lamp","firmwareType":10})", true), "230/7/0/");
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":10,"cid":"gw0001","offset":0,"downloadSize":2})")
        << "expected the type of the start, not that of the announcement";
    EXPECT_EQ(engr_get_gw_ext_stat(), GW_EXT_STAT_DEV_UPGRADING);
    EXPECT_EQ(service.start_transfer("lamp"), 0);
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":10,"cid":"lamp","offset":0,"downloadSize":2})");
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "ab"));
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":10,"cid":"lamp","offset":2,"downloadSize":0})");
    EXPECT_EQ(app->receive_text(), R"(233/0/0/{"firmwareType":10, "cid":"lamp", "softVer":"3"})");
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.take_calls(), "for lamp; offer 3 3 2 m; chunk 0+2; outcome 0");
    EXPECT_STREQ(engr_get_dev_cntl("lamp")->sw_ver, "3");

    // A version that differs only in letter case stays as it is; an unknown device is an error.
    EXPECT_EQ(engr_lan_gw_subdevice_update("lamp", "V4a", 10, 0, 0), 0);
    EXPECT_EQ(world.log().count(4, "ver need update"), 1U);
    EXPECT_EQ(engr_lan_gw_subdevice_update("lamp", "v4A", 10, 0, 0), 0);
    EXPECT_EQ(world.log().count(4, "ver need update"), 1U);
    EXPECT_STREQ(engr_get_dev_cntl("lamp")->sw_ver, "V4a");
    EXPECT_EQ(engr_lan_gw_subdevice_update("nobody", "1", 10, 0, 0), -901);
    EXPECT_TRUE(world.log().has(0, "get devctl fail. devID:nobody"));
    EXPECT_EQ(engr_lan_gw_subdevice_update(nullptr, "1", 10, 0, 0), -2);

    world.run_until_idle();
    app->peer.receive_available();
    begin_upgrade(*app, 2);
    EXPECT_EQ(engr_lan_gw_subdevice_update("nobody", "1", 10, 0, 0), -901);
    EXPECT_EQ(state(), "1/3/still") << "expected an unknown device to end nothing but the time-out";
    upgrade_end_by_version();
}

TEST_F(upgrade, announcements_are_checked_and_stored) {
    const struct {
        uint32_t type;
        const char *request;
        const char *answer;
    } cases[] = {
        {FRM_CHK_SOFT_VER, "{not json}", "250/7/1/data format error"},
        {FRM_DEV_UPGRADE_INFO, "{not json}", "229/7/1/data format error"},
        {FRM_DEV_UPGRADE_INFO, R"({"firmwareType":0,"fileMd5":"m","cid":"lamp","swVer":"1"})",
         "229/7/1/data format error"},
        {FRM_CHK_SOFT_VER, R"({"fileSize":1,"fileMd5":"m"})", "250/7/1/data format error"},
        {FRM_CHK_SOFT_VER, R"({"swVer":"1","fileMd5":"m"})", "250/7/1/data format error"},
        {FRM_CHK_SOFT_VER, R"({"swVer":"1","fileSize":1})", "250/7/1/data format error"},
        {FRM_CHK_SOFT_VER, R"({"swVer":"1","fileSize":"1","fileMd5":"m"})",
         "250/7/1/data format error"},
        {FRM_DEV_UPGRADE_INFO, R"({"fileSize":1,"fileMd5":"m","cid":"lamp","swVer":"1"})",
         "229/7/1/data format error"},
        {FRM_DEV_UPGRADE_INFO, R"({"firmwareType":0,"fileSize":1,"fileMd5":"m","swVer":"1"})",
         "229/7/1/data format error"},
        {FRM_DEV_UPGRADE_INFO,
         R"({"firmwareType":"0","fileSize":1,"fileMd5":"m","cid":"lamp","swVer":"1"})",
         "229/7/1/data format error"},
        {FRM_DEV_UPGRADE_INFO,
         R"({"firmwareType":-3,"fileSize":1,"fileMd5":7,"cid":"no ~body","swVer":[]})",
         R"(229/7/0/{"firmwareType":-3, "updateStatus":0, "updateCid":"", )"
         R"("cids":["no ~body"], "softVer":""})"},
        {FRM_DEV_UPGRADE_INFO,
         R"({"firmwareType":0,"fileSize":1,"fileMd5":"m","cid":"a\"","swVer":"1"})",
         R"(229/7/0/{"firmwareType":0, "updateStatus":0, "updateCid":"", )"
         R"("cids":[""], "softVer":""})"},
        {FRM_DEV_UPGRADE_INFO,
         R"({"firmwareType":0,"fileSize":1,"fileMd5":"m","cid":7,"swVer":"1"})",
         R"(229/7/0/{"firmwareType":0, "updateStatus":0, "updateCid":"", )"
         R"("cids":[""], "softVer":""})"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(app->ask(one.type, one.request, true), one.answer) << one.request;
    }
    EXPECT_TRUE(world.log().has(0, "error result: data format error, data: {not json}"));
    announce(*app, 77, "1.2.3");
    EXPECT_STREQ(up_info.sw_ver, "1.2.3");
    EXPECT_EQ(up_info.file_size, 77U);
    EXPECT_STREQ(up_info.file_md5, md5);
}

TEST_F(upgrade, a_start_that_fails_is_refused_and_rolled_back) {
    const std::string request = R"({"cid":"lamp","firmwareType":10})";
    gw_cntl_t &record = *engr_get_gw_cntl();
    EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, request, true), "230/7/1/file_size is zero");
    announce(*app, 4);
    const struct {
        const char *request;
        bool has_callbacks;
        const char *answers;
        const char *log;
    } cases[] = {
        {"{not json}", true, "230/7/1/Json Parse Fails", "Json Parse Fails {not json}"},
        {R"({"firmwareType":0})", true, "230/7/1/Json Parse Fails", "Json Parse Fails"},
        {R"({"cid":7,"firmwareType":0})", true, "230/7/1/Json Parse Fails", "Json Parse Fails"},
        {R"({"cid":"lamp"})", true, "230/7/1/Json Parse Fails", "Json Parse Fails"},
        {R"({"cid":"\"","firmwareType":3})", true, "230/7/1/Json Parse Fails", "Json Parse Fails"},
        {R"({"cid":"a\\","firmwareType":3})", true, "230/7/1/Json Parse Fails", "Json Parse Fails"},
        {R"({"cid":"\u007f","firmwareType":3})", true, "230/7/1/Json Parse Fails",
         "Json Parse Fails"},
        {R"({"cid":"\n","firmwareType":3})", true, "230/7/1/Json Parse Fails", "Json Parse Fails"},
        {R"({"cid":"lamp","firmwareType":"0"})", true, "230/7/1/Json Parse Fails",
         "Json Parse Fails"},
        {R"({"cid":"lamp","firmwareType":0})", true, "230/7/0/ 230/7/1/gw_lan_ug_cb error",
         "gw_lan_ug_cb ret:-6"},
        {R"({"cid":"l","firmwareType":10})", true, "230/7/0/ 230/7/1/dev_lan_ug_cb error",
         "dev_lan_ug_cb ret:-6"},
        {R"({"cid":"lamp","firmwareType":0})", false,
         "230/7/0/ 230/7/1/gw_lan_ug_cb func not exist", "gw_lan_ug_cb func not exist"},
        {R"({"cid":"lamp","firmwareType":10})", false,
         "230/7/0/ 230/7/1/dev_lan_ug_cb func not exist", "dev_lan_ug_cb func not exist"},
    };
    service.offer_result = -6;
    service.starts_transfer = false;
    const auto gw_offer = record.gw_lan_ug_cb;
    const auto dev_offer = record.dev_lan_ug_cb;
    for (const auto &one : cases) {
        SCOPED_TRACE(one.request);
        record.gw_lan_ug_cb = one.has_callbacks ? gw_offer : nullptr;
        record.dev_lan_ug_cb = one.has_callbacks ? dev_offer : nullptr;
        world.log().clear();
        std::string answers = app->ask(FRM_DEV_UPGRADE, one.request, true);
        if (answers == "230/7/0/") {
            answers += " " + app->receive_text();
        }
        EXPECT_EQ(answers, one.answers);
        EXPECT_TRUE(world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_TRUE(world.log().has(0, "error result: "));
        EXPECT_EQ(state(), "0/2/still");
    }
    record.gw_lan_ug_cb = gw_offer;
    service.offer_result = 0;
    world.log().clear();
    for (uint64_t n = 1; n < 9 && !world.log().has(0, "malloc error"); ++n) {
        upgrade_refuse();
        world.fail("Malloc", sim::nth(n));
        app->send_encrypted(7, FRM_DEV_UPGRADE, R"({"cid":"lamp","firmwareType":0})");
        world.run_until_idle();
        world.clear_faults();
    }
    EXPECT_TRUE(world.log().has(0, "error result: malloc error"))
        << "expected one of the calls to be the record's";
    EXPECT_EQ(state(), "0/2/still");
}

TEST_F(upgrade, other_firmware_types_block_until_something_ends_them) {
    announce(*app, 4);
    story_app other = gateway.connect();
    for (const char *request :
         {R"({"cid":"lamp","firmwareType":3})", R"({"cid":"lamp","firmwareType":-1})",
          R"({"cid":"","firmwareType":10})"}) {
        SCOPED_TRACE(request);
        EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, request, true), "230/7/0/");
        EXPECT_EQ(app->receive_text(100), "nothing");
        EXPECT_EQ(app->ask(FRM_DEV_UPGRADE, request, true), "230/7/1/dev is upgrading");
        EXPECT_TRUE(world.log().has(0, "error result: dev is upgrading, data: "));
        EXPECT_EQ(update_stat, 1) << "expected a refusal not to touch what is under way";
        gateway.connect().peer.close();
        world.run_for(100);
        EXPECT_EQ(update_stat, 0) << "expected any lost connection to end it";
        EXPECT_EQ(engr_get_gw_ext_stat(), GW_EXT_STAT_UPGRADE_ENDED);
    }
    EXPECT_EQ(service.take_calls(), "") << "expected no outcome without a transfer";
}

TEST_F(upgrade, a_chunk_that_fails_ends_it_and_is_reported_unless_the_service_refused_it) {
    const struct {
        const char *what;
        std::string payload;
        int chunk_result;
        const char *calls; // after the offer
        const char *log;
    } cases[] = {
        {"no offset", "abc", 0, "outcome 1", "chunk without offset, length:3"},
        {"empty", "", 0, "outcome 1", "chunk without offset, length:0"},
        {"refused by the service", chunk(0, "abcd"), -8, "chunk 0+4", "get_file_cb error:-8"},
        {"runs over the end", chunk(4, "abcdefg"), 0, "chunk 4+7; outcome 1",
         "download length is too long:11"},
        {"begins behind the end", chunk(11, ""), 0, "outcome 1", "download length is too long:11"},
        {"end overflows", chunk(0xFFFFFFFF, "ab"), 0, "outcome 1", "download length is too long:1"},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.what);
        begin_upgrade(*app, 10);
        service.take_calls();
        service.chunk_result = one.chunk_result;
        app->send(7, FRM_DOWNLOAD_FIRMWARE, one.payload);
        EXPECT_EQ(app->receive_text(100), "nothing") << "expected no answer to a failed chunk";
        EXPECT_FALSE(world.log().has(4, "download end")) << "expected this of a taken chunk only";
        EXPECT_TRUE(world.log().has(0, one.log)) << "expected: " << one.log;
        EXPECT_EQ(state(), "0/2/still");
        EXPECT_EQ(service.take_calls(), one.calls);
        service.chunk_result = 0;
    }
    engr_set_gw_ext_stat(0);
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "stray"));
    world.run_until_idle();
    EXPECT_EQ(state(), "0/2/still") << "expected a stray chunk to be dropped";
    EXPECT_EQ(service.take_calls(), "");
}

TEST_F(upgrade, an_offset_of_2_gib_or_more_is_asked_for_as_a_negative_number) {
    begin_upgrade(*app, 10);
    service.offered.file_size = UINT32_MAX;
    EXPECT_EQ(service.start_transfer(), 0);
    app->receive_text();
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(INT32_MAX, "a")),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":-2147483648,"downloadSize":4})");
    upgrade_end_by_version();
}

TEST_F(upgrade, a_chunk_may_end_an_image_of_4_gib_and_never_ends_behind_that) {
    service.starts_transfer = false;
    const struct {
        std::string payload;
        const char *calls;
        int level;
        const char *log;
    } cases[] = {
        {chunk(UINT32_MAX - 1, "abcd"), "outcome 1", 0, "download length is too long:2"},
        {chunk(UINT32_MAX, ""), "chunk 4294967295+0; outcome 0", 4,
         "file size:10,offset1:-1,offset2:-1,len:4"},
    };
    for (const auto &one : cases) {
        begin_upgrade(*app, 10);
        app->receive_text();
        service.offered.file_size = UINT32_MAX;
        EXPECT_EQ(service.start_transfer(), 0);
        app->receive_text();
        service.take_calls();
        app->send(7, FRM_DOWNLOAD_FIRMWARE, one.payload);
        world.run_for(100);
        app->peer.receive_available();
        EXPECT_TRUE(world.log().has(one.level, one.log)) << "expected: " << one.log;
        EXPECT_EQ(service.take_calls(), one.calls);
    }
    EXPECT_TRUE(world.log().has(4, "data[0]:255,data[1]:255,data[2]:255,data[3]:255"));
}

TEST_F(upgrade, that_ends_while_the_service_takes_the_last_chunk_has_no_second_end) {
    begin_upgrade(*app, 4);
    service.take_calls();
    service.in_chunk = upgrade_end_by_version;
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
    EXPECT_EQ(app->receive_text(100), "nothing");
    EXPECT_EQ(service.take_calls(), "chunk 0+4");
    engr_set_gw_ext_stat(0);
    upgrade_set_ext_stat(GW_EXT_STAT_GW_UPGRADING);
    EXPECT_EQ(state(), "0/0/still") << "expected nothing to be announced of what has ended";

    // The upgrade is refused meanwhile, and its transfer goes on.
    begin_upgrade(*app, 4);
    service.take_calls();
    service.in_chunk = upgrade_refuse;
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":4,"downloadSize":0})");
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.take_calls(), "chunk 0+4; outcome 0");
}

TEST_F(upgrade, calls_of_the_service_are_refused_without_what_they_need) {
    lan_fw_info_t firmware{};
    firmware.file_size = 8;
    const get_file_cb_t take = [](lan_fw_info_t *, uint32_t, uint32_t, const uint8_t *, uint32_t,
                                  uint32_t *, void *) { return 0; };
    const ug_notify_cb_t told = [](lan_fw_info_t *, int, void *) { return 0; };
    begin_upgrade(*app, 10);
    EXPECT_EQ(lan_gw_start_upgrade("lamp", nullptr, take, nullptr, told, 0, 0), -2);
    EXPECT_EQ(lan_gw_start_upgrade("lamp", &firmware, nullptr, nullptr, told, 0, 0), -2);
    EXPECT_EQ(lan_gw_start_upgrade("lamp", &firmware, take, nullptr, nullptr, 0, 0), -2);
    EXPECT_EQ(engr_lan_gw_subdevice_update("lamp", nullptr, 10, 0, 0), -2);
    EXPECT_EQ(app->receive_text(100), "nothing");
    EXPECT_EQ(lan_gw_start_upgrade("", &firmware, take, nullptr, told, 0, 0), 0);
    EXPECT_EQ(app->receive_text(),
              R"(231/0/0/{"firmwareType":0,"cid":"gw0001","offset":0,"downloadSize":8})")
        << "expected the gateway to be meant where no device is named";
    EXPECT_EQ(lan_gw_start_upgrade("d", &firmware, take, nullptr, told, 0, 0), 0);
    EXPECT_NE(app->receive_text().find(R"("cid":"d")"), std::string::npos);
    EXPECT_EQ(engr_rpt_upload_upgrade_percent(5, nullptr, 0), 0);
    EXPECT_EQ(app->receive_text(), R"(232/0/0/{"firmwareType":0, "cid":"", "progress":5})");
    const std::string longer(200, 'l');
    EXPECT_EQ(engr_rpt_upload_upgrade_percent(5, longer.c_str(), 0), 0);
    EXPECT_EQ(app->receive_text().size(), 8U + 127U) << R"(expected a cut text behind "232/0/0/")";
    EXPECT_EQ(engr_lan_gw_subdevice_update("lamp", longer.c_str(), 10, 0, 0), 0);
    EXPECT_EQ(app->receive_text().size(), 8U + 127U) << R"(expected a cut text behind "233/0/0/")";
}

TEST_F(upgrade, a_request_that_can_not_be_sent_ends_it) {
    begin_upgrade(*app, 10);
    story_app other = gateway.connect();
    service.take_calls();
    service.in_chunk = [&] { app->peer.reset(); };
    app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
    world.run_for(100);
    app.emplace(other);
    EXPECT_TRUE(world.log().has(0, "send error:-909"));
    EXPECT_FALSE(world.log().has(4, "download end"));
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.take_calls(), "chunk 0+4; outcome 1");
    // The next connection has another number: it gets no requests of the old one.
    EXPECT_EQ(service.start_transfer(), 0);
    EXPECT_EQ(other.receive_text(100), "nothing");
    world.run_for(chunk_watchdog_ms);
    EXPECT_EQ(service.take_calls(), "outcome 1")
        << "expected the watchdog to end a transfer of its own";
}

TEST_F(upgrade, an_app_that_falls_silent_or_is_lost_is_noticed) {
    begin_upgrade(*app, 10);
    service.take_calls();
    app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
    const uint64_t before = world.now_ms();
    EXPECT_TRUE(world.run_until([] { return update_stat == 0; }));
    EXPECT_EQ(world.now_ms() - before, 40'000U);
    world.run_for(1);
    EXPECT_TRUE(world.log().has(1, "upgrade timeout!"));
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.take_calls(), "chunk 0+4; outcome 1");

    begin_upgrade(*app, 10);
    service.take_calls();
    app->peer.close();
    world.run_for(100);
    EXPECT_TRUE(world.log().has(0, "in upgrading, notify the status of upgrade"));
    app.emplace(gateway.connect());
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.take_calls(), "outcome 1");

    world.fail("CreateAndStart", sim::nth(1));
    begin_upgrade(*app, 4);
    app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
    world.run_for(100);
    EXPECT_TRUE(world.log().has(0, "create thread error"));
    EXPECT_EQ(state(), "0/2/still");
}

TEST_F(upgrade, a_service_that_hangs_does_not_block_the_next_one) {
    begin_upgrade(*app, 4);
    bool has_ended = false;
    service.in_outcome = [&](int) {
        world.run_for(outcome_watchdog_ms + 5'000);
        has_ended = true;
    };
    app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcd"));
    const uint64_t before = world.now_ms();
    world.run_for(100);
    const uint64_t workers = world.calls("CreateAndStart");
    app->peer.close();
    EXPECT_TRUE(world.run_until([] { return update_stat == 0; }, 200'000));
    EXPECT_EQ(world.now_ms() - before, 120'000U);
    world.run_for(1'000);
    EXPECT_EQ(world.calls("CreateAndStart"), workers) << "expected no outcome of a decided upgrade";
    app.emplace(gateway.connect());
    EXPECT_FALSE(has_ended);
    EXPECT_EQ(update_stat, 0);
    service.in_outcome = nullptr;
    begin_upgrade(*app, 8);
    world.run_for(10'000);
    EXPECT_TRUE(has_ended);
    EXPECT_EQ(update_stat, 1) << "expected the end of the old worker not to end the new upgrade";
    EXPECT_EQ(engr_get_gw_ext_stat(), GW_EXT_STAT_GW_UPGRADING);
    app->ask(FRM_DOWNLOAD_FIRMWARE, chunk(0, "abcdefgh"));
    world.run_for(100);
    EXPECT_EQ(state(), "0/2/still");
    EXPECT_EQ(service.outcomes(), 2U);
}

TEST_F(upgrade, percentages_never_overflow_and_leave_the_rest_to_the_installation) {
    const struct {
        uint32_t done;
        uint32_t total;
        int percent;
    } cases[] = {
        {0, 0, 0},
        {99, 99, 98},
        {48, 48, 97},
        {49, 49, 98},
        {500000, 1000000, 49},
        {42008399, 50000000, 83},
        {42008400, 50000000, 84},
        {42949671, 42949671, 98},
        {42949672, 42949672, 98},
        {21474837, 42949672, 49},
        {0xFFFFFFFF, 0xFFFFFFFF, 98},
        {0, 1000, 0},
    };
    for (const auto &one : cases) {
        __rpt_upload_upgrade_percent("c", one.done, one.total);
        EXPECT_NE(app->receive_text().find("\"progress\":" + std::to_string(one.percent) + "}"),
                  std::string::npos)
            << one.done << " of " << one.total << ": expected " << one.percent;
    }
}

} // namespace
