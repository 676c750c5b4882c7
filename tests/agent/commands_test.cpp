/* The installer's commands: each success, each failure message and each silence, with the calls
 * that the gateway's services get. */
#include "command/request_steps.h"
#include "gateway_services/scenario.h"
#include "story_gateway.h"
#include "transport/frame_types.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <utility>

namespace {

/** One request, and what must come of it. */
struct command_case {
    const char *what;
    uint32_t fr_type;
    const char *request;
    const char *answer; ///< the first frame, "type/number/ret/text"; null: not checked
    const char *calls;  ///< "name(arguments)=result", separated by blanks; null: not checked
    const char *log;    ///< a line of the log; null: not checked
    const char *faulty =
        nullptr;        ///< service or callback that returns `result` instead of doing its work
    int32_t result = 0; ///< what it returns
};

struct commands : agent_test {
    commands() {
        gateway.start();
        app.emplace(gateway.connect());
        gateway.trace.clear();
    }
    /** The calls so far, without those that only ask for the extended state. */
    std::string calls() {
        std::string all;
        for (const std::string &line : gateway.trace) {
            const auto entry = nlohmann::ordered_json::parse(line);
            if (entry["call"] == "engr_get_gw_ext_stat") {
                continue;
            }
            std::string arguments;
            for (const auto &value : entry["args"]) {
                arguments += (arguments.empty() ? "" : ",") + value.dump();
            }
            all +=
                (all.empty() ? "" : " ") + entry["call"].get<std::string>() + "(" + arguments + ")";
            if (!entry["result"].is_null()) {
                all += "=" + entry["result"].dump();
            }
        }
        gateway.trace.clear();
        return all;
    }

    static void set_fault(const command_case &one, bool on) {
        if (one.faulty == nullptr) {
            return;
        }
        const std::string name = one.faulty;
        const bool is_callback = name == "permit_join" || name == "scene_exec" ||
                                 name == "sync_config" || name == "get_log_path";
        if (is_callback) {
            ::gateway::set_callback(name,
                                    on ? ::gateway::callback_mode::fixed_result
                                       : ::gateway::callback_mode::present,
                                    one.result);
        } else {
            ::gateway::set_service_fault(name, on ? std::optional(one.result) : std::nullopt);
        }
    }

    void check(const command_case &one) {
        SCOPED_TRACE(one.what);
        world.run_until_idle();
        app->peer.receive_available();
        gateway.trace.clear();
        world.log().clear();
        set_fault(one, true);
        app->send_encrypted(7, one.fr_type, one.request);
        std::string answer = app->receive_text(1'000);
        if (answer.starts_with("8/0/0/")) { // a report of what was set may come first
            answer = app->receive_text(1'000);
        }
        EXPECT_TRUE(one.answer == nullptr || answer == one.answer)
            << one.request << ": expected " << one.answer << ", got " << answer;
        world.run_until_idle();
        const std::string called = calls();
        EXPECT_EQ(called, one.calls != nullptr ? one.calls : called);
        EXPECT_TRUE(one.log == nullptr || world.log().has(one.log)) << "expected: " << one.log;
        const bool has_failed = one.faulty != nullptr || answer.find("/0/") == std::string::npos;
        EXPECT_TRUE(has_failed || !world.log().has(0, " err")) << world.log().text();
        set_fault(one, false);
    }

    template <size_t Count>
    void check_all(const command_case (&cases)[Count]) {
        for (const command_case &one : cases) {
            check(one);
        }
    }

    working_directory directory;
    std::optional<story_app> app;
};

TEST_F(commands, to_devices_and_groups_are_checked_passed_on_and_silent_when_refused) {
    const command_case cases[] = {
        {"set", FRM_TP_CMD, R"({"cid":"lamp","dps":{"1":false}})", "7/7/0/", nullptr,
         "Rev TP CMD 7"},
        {"set, second type", FRM_TP_CMD_2, R"({"devId":"lamp","dps":{"1":true}})", "13/7/0/",
         nullptr, "Rev TP CMD. Send to User"},
        {"not JSON", FRM_TP_CMD, "{no}", "7/7/1/data format error", nullptr,
         "Not Json Cmd Parse Fails {no}"},
        {"no dps", FRM_TP_CMD, R"({"cid":"lamp"})", "7/7/1/data format error", nullptr,
         "Json Cmd Lack devId or dps"},
        {"not decoded", FRM_TP_CMD, "{}", "7/7/1/parse data error", nullptr,
         "Cmd Parse Fails -9.Cannot handle", "engr_parse_data_with_cmd", -9},
        {"decoded to nothing", FRM_TP_CMD, "{}", "7/7/1/data format error", nullptr,
         "Not Json Cmd Parse Fails ", "engr_parse_data_with_cmd", 0},
        {"refused by the service", FRM_TP_CMD, R"({"cid":"lamp","dps":{}})", "nothing", nullptr,
         "send_gw_dev_cmd error:-5", "engr_sf_send_gw_dev_cmd", -5},
        {"taken by the service", FRM_TP_CMD, R"({"cid":"lamp","dps":{}})", "7/7/0/", nullptr,
         nullptr, "engr_sf_send_gw_dev_cmd", 0},
        {"while the gateway is upgraded", FRM_TP_CMD, R"({"cid":"lamp","dps":{}})",
         "7/7/1/device is upgrading...", "", "gw is upgrade 3.Cannot handle",
         "engr_get_gw_ext_stat", 3},
        {"while a device is upgraded", FRM_TP_CMD_2, R"({"cid":"lamp","dps":{"1":true}})",
         "13/7/0/", nullptr, nullptr, "engr_get_gw_ext_stat", 4},
        {"group", FRM_GRP_EXEC, R"({"cid":"lamp","dps":{"1":false}})", "209/7/0/", nullptr,
         "Rev Grp Cmd. Send to User"},
        {"group, not gated", FRM_GRP_EXEC, R"({"cid":"lamp","dps":{"1":true}})", "209/7/0/",
         nullptr, nullptr, "engr_get_gw_ext_stat", 3},
        {"group, not JSON", FRM_GRP_EXEC, "{no}", "209/7/1/data format error", "",
         "Json Parse Fails {no}"},
        {"group, no dps", FRM_GRP_EXEC, R"({"gid":"g"})", "209/7/1/data format error", "",
         "recv cmd and process error"},
        {"group, refused", FRM_GRP_EXEC, R"({"gid":"g","dps":{}})", "nothing", nullptr,
         "recv cmd and process error", "engr_sf_send_gw_dev_cmd", -5},
        {"operation", FRM_GRP_OPER, R"({"gid":"g","op":"none"})", "nothing", nullptr,
         "Rev Grp Oper Cmd", "engr_sf_send_grp_oper_cmd", 0},
        {"operation, not JSON", FRM_GRP_OPER, "{no}", "208/7/1/data format error", "",
         "Json Parse Fails {no}"},
        {"operation, refused", FRM_GRP_OPER, "{}", "208/7/1/group oper failed",
         "engr_sf_send_grp_oper_cmd({})=-3", "sf_send_grp_oper_cmd error:-3",
         "engr_sf_send_grp_oper_cmd", -3},
    };
    check_all(cases);
    app->ask(FRM_TP_CMD, "{}", true);
    EXPECT_TRUE(calls().starts_with("engr_parse_data_with_cmd(0,"));
    json_request request("{}");
    const sf_service service = [](sf_cmd_t *command) { return int32_t{command->source} - 9; };
    EXPECT_EQ(hand_over(request, service), -9) << "expected the LAN agent to say who it is";
}

TEST_F(commands, to_devices_groups_and_scenes_log_failures_only) {
    const struct {
        uint32_t fr_type;
        const char *request;
        bool is_failure;
        const char *faulty = nullptr;
        int32_t result = 0;
    } cases[] = {
        {FRM_TP_CMD, R"({"cid":"lamp","dps":{}})", true, "engr_get_gw_ext_stat",
         GW_EXT_STAT_GW_UPGRADING},
        {FRM_TP_CMD, "{}", true, "engr_parse_data_with_cmd", -9},
        {FRM_TP_CMD, "{no}", true},
        {FRM_TP_CMD, R"({"cid":"lamp"})", true},
        {FRM_TP_CMD, R"({"dps":{}})", true, "engr_sf_send_gw_dev_cmd", -5},
        {FRM_TP_CMD, R"({"dps":{}})", false, "engr_sf_send_gw_dev_cmd", 0},
        {FRM_GRP_EXEC, "{no}", true},
        {FRM_GRP_EXEC, R"({"gid":"g"})", true},
        {FRM_GRP_EXEC, R"({"dps":{}})", true, "engr_sf_send_gw_dev_cmd", -5},
        {FRM_GRP_EXEC, R"({"dps":{}})", false, "engr_sf_send_gw_dev_cmd", 0},
        {FRM_SCENE_CMD, R"({"sid":"s"})", true},
        {FRM_SCENE_CMD, R"({"sid":"s","gid":"g"})", true, "scene_exec", 1},
        {FRM_SCENE_CMD, R"({"sid":"s","gid":"g"})", false, "scene_exec", 0},
    };
    for (const auto &one : cases) {
        check({one.request, one.fr_type, one.request, nullptr, nullptr, nullptr, one.faulty,
               one.result});
        const char *log =
            one.fr_type == FRM_SCENE_CMD ? "recv scene exec error" : "recv cmd and process error";
        EXPECT_EQ(world.log().count(0, log), one.is_failure ? 1U : 0U)
            << one.fr_type << ' ' << one.request;
    }
}

TEST_F(commands, that_query_and_delete_devices_return_what_they_find) {
    const command_case cases[] = {
        {"by id", FRM_LOCAL_DP_QUERY, R"({"cid":"lamp"})",
         R"(10/7/0/{"cid":"lamp","dps":{"1":true}})",
         R"(engr_get_dev_cntl("lamp")="lamp" engr_sf_pack_local_obj_dp_data("lamp",-1,1,0,1,1)=)"
         R"("{\"cid\":\"lamp\",\"dps\":{\"1\":true}}")",
         "Send Query To App:{"},
        {"own device", FRM_LOCAL_DP_QUERY_2, "{}", "16/7/1/json obj data unvalid", nullptr,
         "nothing to report app query"},
        {"without own device", FRM_LOCAL_DP_QUERY, "{}", "10/7/1/devid not found",
         "engr_get_gw_dev_cntl()", "devId Not Find", "engr_get_gw_dev_cntl", 0},
        {"unknown", FRM_LOCAL_DP_QUERY, R"({"cid":"nobody"})", "10/7/1/devid not found",
         R"(engr_get_dev_cntl("nobody"))", "devId Not Find"},
        {"id of another type", FRM_LOCAL_DP_QUERY, R"({"cid":7})", "10/7/1/devid not found", "",
         "devId Not Find"},
        {"not JSON", FRM_LOCAL_DP_QUERY, "{no}", "10/7/1/data format error", "",
         "Json Parse Fails"},
        {"data points", FRM_DP_QUERY, R"({"cid":"lamp","dpId":1})", "18/7/0/",
         R"(engr_sf_respone_obj_dp_query("lamp",1)=0)", "Rev Query Dp Data:{",
         "engr_sf_respone_obj_dp_query", 0},
        {"data points, refused", FRM_DP_QUERY, "{}", "18/7/1/query dp failed",
         "engr_sf_respone_obj_dp_query(null,null)=-4", "sf_respone_obj_dp_query error:-4",
         "engr_sf_respone_obj_dp_query", -4},
        {"data points, not JSON", FRM_DP_QUERY, "{no}", "18/7/1/data format error", "",
         "Json Parse Fails"},
        {"delete, not JSON", FRM_DEL_SUB_DEV, "{no}", "242/7/1/data format error", "",
         "error result: data format error, data: {no}"},
        {"delete, no id", FRM_DEL_SUB_DEV, R"({"cid":null})", "242/7/1/data format error", "",
         nullptr},
        {"delete, unknown", FRM_DEL_SUB_DEV, R"({"cid":"nobody"})", R"(242/7/0/{"cid":"nobody"})",
         R"(engr_get_dev_cntl("nobody"))", "dev id nobody can't be found"},
        {"delete, refused", FRM_DEL_SUB_DEV, R"({"cid":"lamp"})", R"(242/7/0/{"cid":"lamp"})",
         R"(engr_get_dev_cntl("lamp")="lamp" dev_delete_notify("lamp") )"
         R"(engr_gw_unbind_device_inner("lamp")=-2)",
         "gw_unbind_device_inner err:-2", "engr_gw_unbind_device_inner", -2},
        {"delete", FRM_DEL_SUB_DEV, R"({"cid":"lamp"})", R"(228/0/0/{"cid":"lamp"})",
         R"(engr_get_dev_cntl("lamp")="lamp" dev_delete_notify("lamp") )"
         R"(engr_gw_unbind_device_inner("lamp")=0)",
         "delete cid:lamp"},
        {"deleted", FRM_DEL_SUB_DEV, R"({"cid":"lamp"})", R"(242/7/0/{"cid":"lamp"})",
         R"(engr_get_dev_cntl("lamp"))", nullptr},
    };
    check_all(cases);
    EXPECT_EQ(app->ask(FRM_DEV_LIST).find("lamp"), std::string::npos);
}

TEST_F(commands, to_scenes_are_checked_passed_on_and_reported_by_the_service) {
    const std::string set =
        R"({"totalCount":1,"gmtModified":5,"scenes":[{"sceneId":"s1","actions":[]}]})";
    const std::string saving =
        "engr_check_modify_time_changed(5)=1 engr_reset_scene_info_to_disk()=0 "
        "engr_save_scene_link(1,5," +
        set + ")=";
    const std::string not_saved = saving + "-1 engr_reset_scene_info_to_disk()=0";
    const std::string saved = saving + "0 engr_load_scene_info_from_disk()=0";
    const std::string long_cid = R"({"cid":")" + std::string(200, 'c') + R"("})";
    const std::string long_reason = R"(248/7/1/{"cid":")" + std::string(127 - 8, 'c');
    const command_case cases[] = {
        {"run", FRM_SCENE_CMD, R"({"sid":"s","gid":"g"})", "17/7/0/",
         R"(scene_exec(2,"FFFFFFFFFFFFFFFF","g","s")=0)", "Rev SCENE CMD. Data:{", "scene_exec", 0},
        {"run, refused", FRM_SCENE_CMD, R"({"sid":"s","gid":"g"})", "17/7/1/scene execute error",
         nullptr, "recv scene exec error", "scene_exec", 1},
        {"run, no group", FRM_SCENE_CMD, R"({"sid":"s"})", "17/7/1/data format error", "",
         "recv scene exec error"},
        {"run, scene of another type", FRM_SCENE_CMD, R"({"sid":1,"gid":"g"})",
         "17/7/1/data format error", "", nullptr},
        {"run, not JSON", FRM_SCENE_CMD, "{no}", "17/7/1/data format error", "",
         "Json Parse Fails"},
        {"linkage, unknown", FRM_COM_SCENE_EXEC, R"({"sceneId":"none"})", "19/7/0/",
         R"(scene_linkage_scene_exe("none")=-1)", "Rev FRM_COM_SCENE_EXEC Cmd {"},
        {"linkage, no id", FRM_COM_SCENE_EXEC, R"({"sceneId":5})", "19/7/1/data format error", "",
         "Json Parse Fails, don't find sceneId."},
        {"linkage, not JSON", FRM_COM_SCENE_EXEC, "{no}", "19/7/1/data format error", "",
         "Json Parse Fails"},
        {"set, no total", FRM_SCENE_LINKAGE, R"({"totalCount":"1"})",
         "226/7/1/do not have totalCount", "", "do not have totalCount, can not happen"},
        {"set, no time", FRM_SCENE_LINKAGE, R"({"totalCount":1})",
         "226/7/1/do not have lastGmtModified", "", "error result: do not have lastGmtModified"},
        {"set, not JSON", FRM_SCENE_LINKAGE, "{no}", "226/7/1/data format error", "",
         "error result: data format error"},
        {"set, not saved", FRM_SCENE_LINKAGE, set.c_str(), "226/7/1/get scene error",
         not_saved.c_str(), "error result: get scene error", "engr_save_scene_link", -1},
        {"set", FRM_SCENE_LINKAGE, set.c_str(), "226/7/0/", saved.c_str(),
         "modify time not match. reset and download"},
        {"set, unchanged", FRM_SCENE_LINKAGE, set.c_str(), "226/7/0/",
         "engr_check_modify_time_changed(5)=0", "scene no changed."},
        {"set, cleared", FRM_SCENE_LINKAGE, R"({"totalCount":0.9})", "226/7/0/",
         "engr_scene_linkage_module_reinit()=0 engr_reset_scene_info_to_disk()=0",
         "get linkage totalcnt:0"},
        {"set, time beyond 32 bits", FRM_SCENE_LINKAGE,
         R"({"totalCount":-1e99,"gmtModified":1e99})", "226/7/0/",
         "engr_check_modify_time_changed(2147483647)=0", "get linkage totalcnt:-2147483648",
         "engr_check_modify_time_changed", 0},
        {"operation", FRM_SCENE_OPER, R"({"op":"none"})", "nothing",
         R"(engr_sf_send_scene_oper_cmd({"op":"none"})=0)", "Rev Data:{",
         "engr_sf_send_scene_oper_cmd", 0},
        {"operation, refused", FRM_SCENE_OPER, "{}", "244/7/1/scene oper failed", nullptr,
         "sf_send_scene_oper_cmd error:-3", "engr_sf_send_scene_oper_cmd", -3},
        {"operation, not JSON", FRM_SCENE_OPER, "{no}", "244/7/1/data format error", "",
         "Json Parse Fails {no}"},
        {"panel", FRM_SCENE_PANEL, R"({"cid":"lamp"})", "nothing",
         R"(engr_sf_send_scene_panel_cmd({"cid":"lamp"})=0)", nullptr,
         "engr_sf_send_scene_panel_cmd", 0},
        {"panel, refused", FRM_SCENE_PANEL, R"({"cid":"lamp"})",
         R"(248/7/1/{"cid":"lamp","reason":"set panel cmd error"})", nullptr,
         "sf_send_scene_panel_cmd error:-3", "engr_sf_send_scene_panel_cmd", -3},
        {"panel, long id", FRM_SCENE_PANEL, long_cid.c_str(), long_reason.c_str(), nullptr, nullptr,
         "engr_sf_send_scene_panel_cmd", -3},
        {"panel, no id", FRM_SCENE_PANEL, R"({"cid":9})",
         R"(248/7/1/{"cid":"xxxxxx","reason":"Json Parse Fails"})", "",
         R"(Json Parse Fails {"cid":9})"},
        {"panel, not JSON", FRM_SCENE_PANEL, "{no}",
         R"(248/7/1/{"cid":"xxxxxx","reason":"Json Parse Fails"})", "", nullptr},
    };
    check_all(cases);
    ::gateway::set_callback("scene_exec", ::gateway::callback_mode::absent);
    EXPECT_EQ(app->ask(FRM_SCENE_CMD, R"({"sid":"s","gid":"g"})", true), "17/7/0/")
        << "expected success without scene_exec";
}

TEST_F(commands, to_the_gateway_are_checked_and_answered_with_the_result_of_the_service) {
    const command_case cases[] = {
        {"token", FRM_TOKEN_BIND, R"({"token":"t0"})", "12/7/0/",
         R"(engr_gw_user_token_bind("***")=0)", R"(Rev Data:{"token":"t0"})"},
        {"token, refused", FRM_TOKEN_BIND, R"({"token":"t0"})", "12/7/1/inner process failed",
         nullptr, "op_ret:-803 frame_type:12 cjson format data error", "engr_gw_user_token_bind",
         -803},
        {"token of another type", FRM_TOKEN_BIND, R"({"token":{}})", "12/7/1/data format error", "",
         "op_ret:-803 frame_type:12 cjson format data error"},
        {"token, not JSON", FRM_TOKEN_BIND, "{no}", "12/7/1/data format error", "",
         "Json Parse Fails"},
        {"join", FRM_PERMIT_JOIN, R"({"type":1,"time":60})", "14/7/0/", "permit_join(4,1,60)=1",
         nullptr, "permit_join", 1},
        {"join, closed", FRM_PERMIT_JOIN, R"({"type":1,"time":0})", "14/7/0/",
         "permit_join(4,0,0)=1", nullptr, "permit_join", 1},
        {"join, fractions", FRM_PERMIT_JOIN, R"({"type":1.9,"time":0.9})", "14/7/0/",
         "permit_join(4,0,0)=1", nullptr, "permit_join", 1},
        {"join, beyond 32 bits", FRM_PERMIT_JOIN, R"({"type":1e99,"time":1e99})", "14/7/0/",
         "permit_join(2,1,2147483647)=1", nullptr, "permit_join", 1},
        {"join, negative", FRM_PERMIT_JOIN, R"({"type":-4,"time":-1})", "14/7/0/",
         "permit_join(255,1,4294967295)=1", nullptr, "permit_join", 1},
        {"join, refused", FRM_PERMIT_JOIN, R"({"type":1,"time":60})",
         "14/7/1/permit join set error", nullptr, nullptr, "permit_join", 0},
        {"join, no time", FRM_PERMIT_JOIN, R"({"type":1})", "14/7/1/data format error", "",
         "op_ret:-803 frame_type:14"},
        {"join, no type", FRM_PERMIT_JOIN, R"({"time":60})", "14/7/1/data format error", "",
         nullptr},
        {"join, not JSON", FRM_PERMIT_JOIN, "{no}", "14/7/1/data format error", "",
         "Json Parse Fails"},
        {"join, time of another type", FRM_PERMIT_JOIN, R"({"type":1,"time":"60"})",
         "14/7/1/data format error", "", nullptr},
        {"wifi", FRM_WIFI_MODIFY, R"({"ssid":"n","passwd":"p"})", "15/7/0/",
         R"(gw_wifi_modify_and_conn("n","***")=0)", nullptr},
        {"wifi, open", FRM_WIFI_MODIFY, R"({"ssid":"n"})", "15/7/0/",
         R"(gw_wifi_modify_and_conn("n",null)=0)", nullptr},
        {"wifi, refused", FRM_WIFI_MODIFY, R"({"ssid":"n"})", "15/7/1/inner process failed",
         nullptr, "op_ret:-6 frame_type:15", "gw_wifi_modify_and_conn", -6},
        {"wifi, not JSON", FRM_WIFI_MODIFY, "{no}", "15/7/1/data format error", "",
         "Json Parse Fails"},
        {"wifi, no ssid", FRM_WIFI_MODIFY, R"({"passwd":"p"})", "15/7/1/data format error", "",
         nullptr},
        {"wifi, password of another type", FRM_WIFI_MODIFY, R"({"ssid":"n","passwd":1})",
         "15/7/1/data format error", "", nullptr},
        {"bind", FRM_USER_BIND_REQ_ENGR, R"({"products":[]})", R"(240/7/0/{"channel":15})",
         R"(gw_engineer_add_sub_dev_to_list("{\"products\":[]}")=0 engr_gw_cntl_init_local()=0)",
         R"(result:{"channel":15})"},
        {"bind, refused", FRM_USER_BIND_REQ_ENGR, R"({"products":[]})",
         "240/7/1/inner process failed", nullptr, "gw_engineer_add_sub_dev_to_list error:-2",
         "gw_engineer_add_sub_dev_to_list", -2},
        {"bind, not initialised", FRM_USER_BIND_REQ_ENGR, R"({"products":[]})",
         "240/7/1/inner process failed", nullptr, "engr_gw_cntl_init_local error:-2",
         "engr_gw_cntl_init_local", -2},
        {"bind, no products", FRM_USER_BIND_REQ_ENGR, "{}", "240/7/1/Json Parse Fails", "",
         "Json Parse Fails {}"},
        {"bind, not JSON", FRM_USER_BIND_REQ_ENGR, "{no}", "240/7/1/Json Parse Fails", "",
         "result:Json Parse Fails"},
        {"set channel", FRM_SET_CHANNEL, R"({"channel":26})", "252/7/0/",
         R"(gw_set_channel("{\"channel\":26}")=0)", nullptr},
        {"set channel, refused", FRM_SET_CHANNEL, R"({"channel":27})", "252/7/1/set channel error",
         nullptr, nullptr},
        {"get channel", FRM_GET_CHANNEL, "", R"(253/7/0/{"channel":26})", "gw_get_channel()=0",
         R"(result:{"channel":26})"},
        {"get channel, not set by the service", FRM_GET_CHANNEL, "", R"(253/7/0/{"channel":0})",
         nullptr, nullptr, "gw_get_channel", 0},
        {"bind, channel not set by the service", FRM_USER_BIND_REQ_ENGR, R"({"products":[]})",
         R"(240/7/0/{"channel":0})", nullptr, nullptr, "engr_gw_cntl_init_local", 0},
        {"get channel, refused", FRM_GET_CHANNEL, "", "253/7/1/get channel error", nullptr,
         "get channel error:-7", "gw_get_channel", -7},
        {"not deactivated", FRM_GW_UNACTIVE, "", "249/7/1/gw unactive failed",
         "engr_gw_unactive(2)=-4", "gw_unactive error:-4", "engr_gw_unactive", -4},
    };
    check_all(cases);
    ::gateway::set_callback("permit_join", ::gateway::callback_mode::absent);
    EXPECT_EQ(app->ask(FRM_PERMIT_JOIN, R"({"type":1,"time":9})", true), "14/7/0/")
        << "expected success without permit_join";
}

TEST_F(commands, deactivation_changes_the_key_of_the_next_frame) {
    ::gateway::set_gateway_field("local_key", "0123456789abcdef");
    ::gateway::set_gateway_field("active_stat", "2");
    app->key = *lan_client::aes_key::from_text("0123456789abcdef");
    EXPECT_EQ(app->ask(FRM_TOKEN_BIND, R"({"token":"t"})", true), "12/7/0/");
    const uint64_t before = world.now_ms();
    EXPECT_EQ(app->ask(FRM_GW_UNACTIVE), "249/7/0/");
    EXPECT_EQ(world.now_ms() - before, 500U) << "expected time for the app to get ready";
    EXPECT_EQ(engr_get_gw_cntl()->active_stat, GW_DEACTIVATED);
    EXPECT_EQ(app->ask(FRM_TOKEN_BIND, R"({"token":"t"})", true).substr(0, 7), "12/7/1/")
        << "expected the old key to be of no use";
    app->key = lan_client::unactivated_key();
    EXPECT_EQ(app->ask(FRM_TOKEN_BIND, R"({"token":"t"})", true), "12/7/0/");
}

TEST_F(commands, that_push_and_read_configuration_keep_it_byte_for_byte) {
    const auto file = [&](const char *name) {
        std::ifstream in(name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    const command_case cases[] = {
        {"read without a file", FRM_READ_APP_CFG, "", "247/7/1/read config error",
         R"(get_config_path()="./" gw_read_file("./app.config")=-1)", "app_cfg_file:./app.config"},
        {"app", FRM_DOWNLOAD_APP_CFG, "{\"a\":1}", "246/7/0/", R"(get_config_path()="./")",
         "app_cfg_file:./app.config"},
        {"read", FRM_READ_APP_CFG, "", R"(247/7/0/{"a":1})",
         R"(get_config_path()="./" gw_read_file("./app.config")=0)", nullptr},
        {"read of nothing", FRM_READ_APP_CFG, "", "247/7/1/read config error", nullptr, nullptr,
         "gw_read_file", 0},
        {"cloud, setting refused", FRM_DOWNLOAD_CLOUD_CFG, "{\"b\":2}", "245/7/1/sync config error",
         R"(get_config_path()="./" wd_common_write("engineer_stat","1\u0000")=-5)",
         "wd_common_write ret:-5", "wd_common_write", -5},
        {"cloud, take-over refused", FRM_DOWNLOAD_CLOUD_CFG, "{\"b\":3}",
         "245/7/1/sync config error", nullptr, nullptr, "sync_config", 9},
        {"cloud", FRM_DOWNLOAD_CLOUD_CFG, "{\"b\":4}", "245/7/0/",
         R"(get_config_path()="./" wd_common_write("engineer_stat","1\u0000")=0 )"
         R"(sync_config()=0 engr_end_notify())",
         "notify user the end of engineer"},
    };
    const mode_t mask = umask(0);
    check_all(cases);
    umask(mask);
    EXPECT_EQ(std::filesystem::status("app.config").permissions(), std::filesystem::perms(0755));
    EXPECT_EQ(file("app.config"), "{\"a\":1}");
    EXPECT_EQ(file("cloud.config"), "{\"b\":4}");
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_APP_CFG), "246/7/0/") << "expected an empty file to be stored";
    EXPECT_EQ(file("app.config"), "");
    EXPECT_EQ(app->ask(FRM_READ_APP_CFG), "247/7/0/");

    ::gateway::set_callback("sync_config", ::gateway::callback_mode::absent);
    gateway.trace.clear();
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_CLOUD_CFG, "{}", true), "245/7/0/");
    world.run_until_idle();
    EXPECT_NE(calls().find("gw_engineer_sync_default_config()=0 engr_end_notify()"),
              std::string::npos);
    EXPECT_TRUE(world.log().has(4, "user default way to sync config file"));

    engr_get_gw_cntl()->dev_delete_notify = nullptr;
    EXPECT_EQ(app->ask(FRM_DEL_SUB_DEV, R"({"cid":"lamp"})", true), R"(228/0/0/{"cid":"lamp"})")
        << "expected a device to be deleted without a callback, too";
    EXPECT_EQ(app->receive_text(), R"(242/7/0/{"cid":"lamp"})");
    const auto notify = std::exchange(engr_get_gw_cntl()->engr_end_notify, nullptr);
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_CLOUD_CFG, "{}", true), "245/7/0/");
    engr_get_gw_cntl()->engr_end_notify = notify;
    calls();

    world.fail("kelo_hal_net_send", sim::nth(1));
    app->send_encrypted(7, FRM_DOWNLOAD_CLOUD_CFG, "{}");
    world.run_for(100);
    EXPECT_EQ(calls().find("engr_end_notify"), std::string::npos)
        << "expected engineering not to end when the answer could not be sent";

    app.emplace(gateway.connect());
    std::filesystem::create_directory("d");
    std::filesystem::remove("app.config");
    std::filesystem::create_directory("app.config");
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_APP_CFG, "{}", true), "246/7/1/download app config error");
    EXPECT_TRUE(world.log().has(0, "open error:Is a directory"));
    std::filesystem::remove("cloud.config");
    std::filesystem::create_directory("cloud.config");
    EXPECT_EQ(app->ask(FRM_DOWNLOAD_CLOUD_CFG, "{}", true), "245/7/1/download cloud config error");
}

} // namespace
