/* The stories, and what they have in common. */
#include "whole_stories.h"

#include "platform/wifi.h"
#include "transport/frame_types.h"
#include "upgrade/upgrade_state.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <fstream>

namespace {

/** Longer than any service of the reference gateway tries again before it gives up. */
constexpr uint64_t answer_ms = 10'000;
/** More reports than any story makes at once. */
constexpr size_t reports_max = 20;

/** Whether a text is a refusal of the request: "type/number/1/" and words of the agent's. */
bool is_refusal(const std::string &answer, uint32_t fr_type) {
    static const char *const words[] = {"fails",       "error",   "failed",      "Fails",
                                        "data format", "devid",   "is zero",     "unvalid",
                                        "not enough",  "is null", "is upgrading"};
    return answer.starts_with(std::to_string(fr_type) + "/7/1/") &&
           std::any_of(std::begin(words), std::end(words),
                       [&](const char *word) { return answer.find(word) != std::string::npos; });
}

/** Whether a frame that answers nothing is one that the gateway sends, whole. */
bool is_report(const std::string &text) {
    static const char *const starts[] = {"8/0/0/",   "227/0/0/", "228/0/0/", "231/0/0/",
                                         "232/0/0/", "233/0/0/", "243/0/0/"};
    return std::any_of(std::begin(starts), std::end(starts), [&](const char *start) {
        return text.starts_with(start) && nlohmann::json::accept(text.substr(std::strlen(start)));
    });
}

/** Next frame, as receive_text gives it. Behind a frame that was cut the connection has to end. */
std::string next_frame(sim::world &world, story_app &app, uint64_t limit_ms) {
    constexpr size_t head_bytes = 16;
    world.run_until([&] { return app.peer.available() >= head_bytes; }, limit_ms);
    if (app.peer.available() == 0 || app.peer.available() >= head_bytes) {
        return app.receive_text(0);
    }
    EXPECT_TRUE(app.peer.wait_for_end()) << "expected the connection to end behind a cut frame";
    return "nothing";
}

} // namespace

story_run::story_run(sim::world &in, const recorded_answers *right)
    : world(in), gateway(in), right_(right) {
    // What the upgrade keeps for the life of the process must not come from an earlier run.
    up_info.cid[0] = '\0';
    up_info.file_size = 0;
    sim::arm_failure();
}

void story_run::start(int32_t mode) {
    const int32_t result = engr_lan_pro_cntl_init(mode);
    EXPECT_TRUE(has_fault() || result == 0) << "expected a start without a fault to succeed";
    if (result == 0 && mode == ENGR_MODE_LAN) {
        world.run_until_listening(lan_port, 2'000);
    }
}

story_app *story_run::app(size_t place) {
    while (apps_.size() <= place) {
        apps_.emplace_back(sim::peer());
    }
    story_app &one = apps_[place];
    if (!one.peer || one.peer.ended() || one.peer.was_reset()) {
        one = story_app(world.connect(lan_port));
        world.run_until_idle();
    }
    return one.peer ? &one : nullptr;
}

std::string story_run::answer_to(uint32_t fr_type, std::string_view payload, bool encrypted) {
    story_app *asking = app();
    if (asking == nullptr) {
        return "nothing";
    }
    encrypted ? asking->send_encrypted(7, fr_type, payload) : asking->send(7, fr_type, payload);
    for (size_t reports = 0; reports < reports_max; ++reports) {
        const std::string answer = next_frame(world, *asking, answer_ms);
        const bool answers_nothing = answer.find("/0/") == answer.find('/');
        if (answer == "nothing" || fr_type == FRM_KEEPALIVE || !answers_nothing) {
            return answer;
        }
        EXPECT_TRUE(is_report(answer)) << "expected a report: " << answer;
    }
    ADD_FAILURE() << fr_type << ": expected at most " << reports_max << " reports before an answer";
    return "nothing";
}

bool story_run::ask(uint32_t fr_type, std::string_view payload, bool encrypted) {
    const std::string answer = answer_to(fr_type, payload, encrypted);
    answers_.push_back(answer);
    if (!has_fault()) {
        EXPECT_NE(answer, "nothing") << fr_type << ": expected an answer";
        return true;
    }
    const std::string &right = right_->at(answers_.size() - 1);
    EXPECT_TRUE(answer == right || answer == "nothing" || is_refusal(answer, fr_type))
        << fr_type << ": expected " << right << ", a refusal or nothing, got " << answer;
    return answer == right;
}

void story_run::ask_in_vain(uint32_t fr_type, std::string_view payload) {
    const std::string answer = answer_to(fr_type, payload, true);
    EXPECT_TRUE(answer == "nothing" || (has_fault() && is_refusal(answer, fr_type)))
        << fr_type << ": expected no answer, got " << answer;
}

std::vector<std::string> story_run::take_reports(size_t place, uint64_t limit_ms) {
    std::vector<std::string> reports;
    if (place >= apps_.size() || !apps_[place].peer) {
        return reports;
    }
    for (std::string text = next_frame(world, apps_[place], limit_ms);
         text != "nothing" && reports.size() < reports_max;
         text = next_frame(world, apps_[place], limit_ms)) {
        EXPECT_TRUE(is_report(text)) << "expected a report: " << text;
        reports.push_back(text);
    }
    return reports;
}

void story_run::end() {
    world.clear_faults();
    for (story_app &each : apps_) {
        if (each.peer) {
            each.peer.close();
        }
    }
    world.run_for(2 * outcome_watchdog_ms);
    EXPECT_EQ(update_stat, 0) << "expected every upgrade to have ended";
    for (const started_transfer &one : service.transfers) {
        EXPECT_LE(one.outcomes.size(), 1U) << "expected one outcome: " << service.outcome_of_each();
    }
    ASSERT_EQ(engr_lan_pro_cntl_init(ENGR_MODE_LAN), 0) << "expected a started agent, or a start";
    ASSERT_TRUE(world.run_until_listening(lan_port, 5'000));
    story_app next(world.connect(lan_port));
    ASSERT_TRUE(next.peer);
    EXPECT_EQ(next.ask(FRM_KEEPALIVE), "9/0/0/") << "expected the next request to be answered";
    EXPECT_TRUE(next.ask(FRM_DEV_LIST).starts_with(R"(241/7/0/{"products":[)"));
    gateway.stop();
}

namespace {

void connect_and_list(story_run &run) {
    run.start();
    run.ask(FRM_KEEPALIVE);
    run.ask(FRM_DEV_LIST, "", false);
    run.ask(FRM_DEV_LINE_STAT, "", false);
}

void commands_to_devices(story_run &run) {
    run.start();
    run.ask(FRM_TP_CMD, R"({"cid":"lamp","dps":{"1":false}})");
    run.ask(FRM_LOCAL_DP_QUERY, R"({"cid":"door"})");
    run.ask(FRM_TP_CMD_2, R"({"devId":"lamp","dps":{"1":true}})");
    run.ask(FRM_LOCAL_DP_QUERY_2, R"({"cid":"door"})");
    run.ask(FRM_GRP_EXEC, R"({"cid":"lamp","dps":{"1":false}})");
    run.ask(FRM_DP_QUERY, R"({"cid":"lamp","dpId":1})");
    run.ask(FRM_GRP_OPER, R"({"gid":"g","name":"n","op":"add"})");
    run.ask(FRM_DEL_SUB_DEV, R"({"cid":"nobody"})");
    run.ask(FRM_DEL_SUB_DEV, R"({"cid":"door"})");
}

void commands_to_scenes(story_run &run) {
    run.start();
    run.ask(FRM_SCENE_LINKAGE,
            R"({"totalCount":1,"gmtModified":5,"scenes":[{"sceneId":"s1","actions":[]}]})");
    run.ask(FRM_COM_SCENE_EXEC, R"({"sceneId":"s1"})");
    run.ask(FRM_SCENE_CMD, R"({"sid":"s","gid":"g"})");
    run.ask(FRM_SCENE_OPER, R"({"op":"none"})");
    run.ask(FRM_SCENE_PANEL, R"({"cid":"lamp"})");
    run.ask_in_vain(FRM_NOP, "{}");
}

void commands_to_the_gateway(story_run &run) {
    run.start();
    run.ask(FRM_GET_CHANNEL, "", false);
    run.ask(FRM_SET_CHANNEL, R"({"channel":15})");
    run.ask(FRM_WIFI_MODIFY, R"({"ssid":"n","passwd":"p"})");
    run.ask(FRM_GW_UNACTIVE, "", false);
    run.ask(FRM_GET_LOG, "", false);
    // A write that failed leaves what it wrote.
    if (run.ask(FRM_DOWNLOAD_APP_CFG, R"({"a":1})")) {
        run.ask(FRM_READ_APP_CFG, "", false);
    }
}

void log_upload(story_run &run) {
    run.start();
    static const std::string log(2'500, 'l');
    std::ofstream("upload.log") << log;
    engr_get_gw_cntl()->get_log_path = [](char *path, uint32_t size) {
        std::strncpy(path, "./upload.log", size);
        return int32_t{0};
    };
    if (story_app *app = run.app()) {
        app->send(7, FRM_GET_LOG);
        std::string received;
        while (const auto frame = app->receive(2'000)) {
            if (frame->ret == 0) {
                EXPECT_TRUE(frame->segment) << "expected a segment";
                received += frame->payload;
            }
        }
        EXPECT_TRUE(run.has_fault() ? log.starts_with(received) : received == log)
            << "expected the log from its start, without a gap";
    }
}

void commissioning(story_run &run) {
    run.start();
    run.ask(FRM_TOKEN_BIND, R"({"token":"t0"})");
    run.ask(FRM_PERMIT_JOIN, R"({"type":0,"time":60})");
    run.world.run_for(2'500);
    run.ask(FRM_USER_BIND_REQ_ENGR, R"({"products":[{"cid":"lamp","pid":"p1"}]})");
    run.ask(FRM_PERMIT_JOIN, R"({"type":0,"time":0})");
    run.ask(FRM_DOWNLOAD_CLOUD_CFG, R"({"b":4})");
}

/** Sends an image of eight bytes, piece by piece, as long as the gateway asks. */
void send_image(story_run &run) {
    for (const uint32_t offset : {0U, 4U}) {
        if (story_app *app = run.app()) {
            app->send(7, FRM_DOWNLOAD_FIRMWARE, chunk(offset, "abcd"));
            run.take_reports(0);
        }
    }
}

void upgrade_of_the_gateway(story_run &run) {
    run.start();
    service.rpt_percent = 1;
    run.ask(FRM_CHK_SOFT_VER, R"({"swVer":"2","fileSize":8,"fileMd5":"0123456789abcdef"})");
    run.ask(FRM_DEV_UPGRADE, R"({"cid":"gw0001","firmwareType":0})");
    send_image(run);
    EXPECT_TRUE(run.has_fault() || service.outcome_of_each() == "0");
}

void upgrade_of_a_device_that_is_lost(story_run &run) {
    run.start();
    run.ask(FRM_DEV_UPGRADE_INFO,
            R"({"swVer":"2","fileSize":12,"fileMd5":"0123","firmwareType":10,"cid":"lamp"})");
    run.ask(FRM_DEV_UPGRADE, R"({"cid":"lamp","firmwareType":10})");
    send_image(run);
    if (story_app *app = run.app()) {
        app->peer.reset();
    }
    run.world.run_for(100);
    EXPECT_TRUE(run.has_fault() || service.outcome_of_each() == "1");
}

void upgrade_from_the_gateways_side(story_run &run) {
    run.start();
    run.ask(FRM_KEEPALIVE);
    service.offered.file_size = 8;
    service.start_transfer("lamp");
    run.take_reports(0);
    service.start_transfer("lamp");
    engr_lan_gw_subdevice_update("lamp", "2", 0, 0, 0);
    run.take_reports(0);
    service.start_transfer("lamp");
}

void reports_to_ten_clients(story_run &run) {
    run.start();
    for (size_t place = 0; place < 10; ++place) {
        run.app(place);
    }
    static const std::string block =
        std::string(8, '\0') + R"({"cid":"lamp","dps":{"1":true}})" + '\0';
    engr_lan_dp_sata_report(reinterpret_cast<const lan_dp_report_t *>(block.data()),
                            static_cast<uint32_t>(block.size()));
    run.world.run_for(10);
    engr_lan_sub_dev_bind_report("lamp", "p1");
    engr_lan_sub_dev_unbind_report("lamp");
    const std::vector<std::string> sent = {R"(8/0/0/{"cid":"lamp","dps":{"1":true}})",
                                           R"(243/0/0/{"products":[{"cid":"lamp","pid":"p1"}]})",
                                           R"(228/0/0/{"cid":"lamp"})"};
    for (size_t place = 0; place < 10; ++place) {
        const std::vector<std::string> got = run.take_reports(place);
        EXPECT_TRUE(run.has_fault()
                        ? std::includes(sent.rbegin(), sent.rend(), got.rbegin(), got.rend(),
                                        [&](const auto &one, const auto &other) {
                                            return std::find(sent.begin(), sent.end(), one) >
                                                   std::find(sent.begin(), sent.end(), other);
                                        })
                        : got == sent)
            << "expected each report once at most, in order; app " << place << " got "
            << got.size();
    }
}

int take_credentials(const char * /*ssid*/, const char * /*passwd*/, const char * /*token*/) {
    return 0;
}

void provisioning_that_fails(story_run &run) {
    constexpr uint16_t config_port = 6669;
    sim::udp_peer app = run.world.open_udp(6670);
    ::gateway::set_gateway_field("nw_cfg_stat", "1");
    ::gateway::set_wifi_mode(WF_WORK_MODE_ACCESS_POINT);
    engr_lan_ap_nw_cfg_start(take_credentials);
    run.world.run_until_idle();
    app.send(config_port, "no frame");
    app.send(config_port, lan_client::encode_request(
                              0, FRM_UDP_WIFI_ERR,
                              lan_client::encrypt(lan_client::configuration_key(),
                                                  R"({"ssid":"s","passwd":"p","token":"t"})")));
    run.world.run_for(100);
    engr_lan_ap_nw_cfg_error_report("wrong password", 3);
    while (const auto datagram = app.receive(100)) {
        const auto frame = lan_client::decode_frame(datagram->bytes);
        EXPECT_EQ(lan_client::decrypt(lan_client::configuration_key(), frame.decoded.payload),
                  R"({"result":3,"desc":"wrong password"})");
    }
    engr_lan_ap_nw_cfg_stop();
    app.close();
}

void start_and_stop(story_run &run) {
    for (int times = 0; times < 2; ++times) {
        run.start();
        run.ask(FRM_KEEPALIVE);
        run.world.run_for(6'000);
        lpc_close_all_socket();
        run.world.run_for(4'000);
        run.ask(FRM_KEEPALIVE);
        run.gateway.stop();
    }
}

void wechat_mode(story_run &run) {
    run.start(ENGR_MODE_WECHAT);
    ::gateway::set_airkiss(4, 1);
    run.world.run_for(11'000);
    ::gateway::set_airkiss(6, 0);
    run.world.run_for(6'000);
    run.gateway.stop();
}

const whole_story stories[] = {
    {"connect_and_list", connect_and_list},
    {"commands_to_devices", commands_to_devices},
    {"commands_to_scenes", commands_to_scenes},
    {"commands_to_the_gateway", commands_to_the_gateway},
    {"log_upload", log_upload},
    {"commissioning", commissioning},
    {"upgrade_of_the_gateway", upgrade_of_the_gateway},
    {"upgrade_of_a_device_that_is_lost", upgrade_of_a_device_that_is_lost},
    {"upgrade_from_the_gateways_side", upgrade_from_the_gateways_side},
    {"reports_to_ten_clients", reports_to_ten_clients},
    {"provisioning_that_fails", provisioning_that_fails, true},
    {"start_and_stop", start_and_stop},
    {"wechat_mode", wechat_mode},
};

} // namespace

std::span<const whole_story> whole_stories() {
    return stories;
}
