// Data points, binding, groups, scenes, panels and the linkage set, as the agent uses them.
#include "commissioned_gateway.h"

#include "gateway/group.h"
#include "gateway/scene.h"
#include "gateway_services/error.h"
#include "lan_client/frame_types.h"

namespace {

struct device_services : commissioned_gateway {};

TEST_F(device_services, commands_change_data_points_and_report_them) {
    const struct {
        const char *request;
        const char *report;
    } cases[] = {
        {R"({"cid":"lamp","dps":{"1":false,"3":"x"}})",
         R"(8/0/0/{"cid":"lamp","dps":{"1":false,"3":"x"}})"},
        {R"({"devId":"door","dps":{"9":1}})", R"(8/0/0/{"cid":"door","dps":{"9":1}})"},
        {R"({"dps":{"4":0.5}})", R"(8/0/0/{"cid":"gw1","dps":{"4":0.5}})"},
        {R"({"cid":"door","gid":"nosuch","dps":{"9":2}})", R"(8/0/0/{"cid":"door","dps":{"9":2}})"},
    };
    for (const auto &each : cases) {
        EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, each.request), 0) << each.request;
        EXPECT_EQ(told(), each.report);
    }
    EXPECT_EQ(data_points("lamp"), R"({"cid":"lamp","dps":{"1":false,"2":5,"3":"x"}})");
    EXPECT_EQ(data_points("door"), R"({"cid":"door","dps":{"9":2}})");
    EXPECT_EQ(data_points("gw1"), R"({"cid":"gw1","dps":{"4":0.5}})");
    EXPECT_THAT(
        gateway.trace.front(),
        testing::StartsWith(R"({"call": "engr_sf_send_gw_dev_cmd", "args": {"root": {"cid")"));
}

TEST_F(device_services, a_group_command_reaches_every_member_once) {
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["door","lamp"]})");
    told();
    EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, R"({"gid":"g","dps":{"1":7}})"), 0);
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"door","dps":{"1":7}})");
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"1":7}})");
    EXPECT_EQ(told(), "nothing");
}

TEST_F(device_services, reports_wait_for_room_on_the_message_bus) {
    std::string products;
    std::string cids;
    for (int i = 0; i < 100; ++i) {
        const std::string id = "d" + std::to_string(i);
        products += (i == 0 ? "" : ",") + (R"({"cid":")" + id + R"(","pid":"p"})");
        cids += (i == 0 ? "\"" : ",\"") + id + "\"";
    }
    EXPECT_EQ(bind("[" + products + "]"), 0);
    for (int i = 0; i < 100; ++i) {
        gateway::set_device_field("d" + std::to_string(i), "online", "1");
    }
    hand_over(engr_sf_send_grp_oper_cmd,
              (R"({"gid":"g","op":"add","cids":[)" + cids + "]}").c_str());
    EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, R"({"gid":"g","dps":{"1":7}})"), 0);
    int reports = 0;
    for (std::string text = told(); text != "nothing"; text = told()) {
        reports += text.starts_with("8/") ? 1 : 0;
    }
    EXPECT_EQ(reports, 100);
}

TEST_F(device_services, a_device_that_is_offline_neither_obeys_nor_reports_nor_answers) {
    const auto command = [](const char *request) {
        return hand_over(engr_sf_send_gw_dev_cmd, request);
    };
    const auto run_scene = [] {
        return engr_get_gw_cntl()->scene_exec(2, "FFFFFFFFFFFFFFFF", "g", "s");
    };
    command(R"({"cid":"door","dps":{"1":0}})");
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["door","lamp"]})");
    hand_over(engr_sf_send_scene_oper_cmd,
              R"({"sid":"s","gid":"g","op":"save","actions":[{"cid":"door","dps":{"1":2}},
                  {"cid":"lamp","dps":{"1":2}}]})");
    for (int i = 0; i < 3; ++i) {
        told();
    }
    gateway::set_device_field("door", "online", "0");
    EXPECT_NE(command(R"({"cid":"door","dps":{"1":1}})"), 0);
    EXPECT_EQ(data_points("door"), "none");
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> cid(cJSON_CreateString("door"),
                                                              cJSON_Delete);
    EXPECT_NE(engr_sf_respone_obj_dp_query(cid.get(), nullptr), 0);
    EXPECT_THROW(gateway::report_data_points("door", R"({"1":1})"), gateway::refused);
    EXPECT_EQ(told(), "nothing");

    EXPECT_EQ(command(R"({"gid":"g","dps":{"1":1}})"), 0);
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"1":1}})") << "the member that is online";
    EXPECT_EQ(run_scene(), 0);
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"1":2}})");
    gateway::set_device_field("lamp", "online", "0");
    EXPECT_NE(command(R"({"gid":"g","dps":{"1":3}})"), 0) << "no member is online";
    EXPECT_NE(run_scene(), 0) << "no device of the scene is online";
    EXPECT_EQ(told(), "nothing");

    gateway::set_device_field("door", "online", "1");
    EXPECT_EQ(data_points("door"), R"({"cid":"door","dps":{"1":0}})") << "as it was left";
    EXPECT_EQ(command(R"({"dps":{"4":1}})"), 0) << "the gateway itself is never offline";
}

constexpr const char *product_site = R"({"gateway": {"gw_id": "gw1"},
    "products": {
        "lamp": {"1": {"kind": "bool"}, "2": {"kind": "value", "min": 10, "max": 1000},
                 "3": {"kind": "enum", "values": ["white", "colour"]},
                 "4": {"kind": "text", "max_bytes": 4}, "5": {"kind": "value"}},
        "sensor": {"1": {"kind": "value", "min": -400, "max": 1250, "read_only": true}}},
    "devices": [{"dev_id": "l", "pid": "lamp", "online": true, "dps": {"1": true, "2": 640}},
                {"dev_id": "s", "pid": "sensor", "online": true, "dps": {"1": 214}},
                {"dev_id": "any", "pid": "other", "online": true}]})";

struct products : commissioned_gateway {
    products() : commissioned_gateway(product_site) {}
};

TEST_F(products, say_which_values_their_devices_take_from_commands_and_from_themselves) {
    const struct {
        const char *device;
        const char *dps;
        bool obeys;
        bool may_report;
    } cases[] = {
        {"l", R"({"1":false,"2":10,"3":"colour","4":"\u00e9\u00e9","5":-2147483648})", true, true},
        {"l", R"({"1":"on"})", false, false},
        {"l", R"({"1":1})", false, false},
        {"l", R"({"1":true,"2":9})", false, false},
        {"l", R"({"2":1001})", false, false},
        {"l", R"({"2":10.5})", false, false},
        {"l", R"({"2":true})", false, false},
        {"l", R"({"3":"blue"})", false, false},
        {"l", R"({"3":0})", false, false},
        {"l", R"({"4":"12345"})", false, false},
        {"l", R"({"4":4})", false, false},
        {"l", R"({"5":2147483648})", false, false},
        {"l", R"({"5":18446744073709551615})", false, false},
        {"l", R"({"9":true})", false, false},
        {"s", R"({"1":215})", false, true},
        {"s", R"({"1":-999})", false, false},
        {"any", R"({"1":"on","255":-999})", true, true},
    };
    for (const auto &each : cases) {
        const std::string cid = std::string(R"({"cid":")") + each.device + R"(","dps":)";
        const std::string request = cid + each.dps + "}";
        EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, request.c_str()) == 0, each.obeys) << request;
        EXPECT_EQ(told().starts_with("8/0/0/" + cid), each.obeys) << request;
        const std::string before = data_points(each.device);
        try {
            gateway::report_data_points(each.device, each.dps);
            EXPECT_TRUE(each.may_report) << request;
            told();
        } catch (const gateway::refused &) {
            EXPECT_FALSE(each.may_report) << request;
            EXPECT_EQ(data_points(each.device), before) << request;
        }
    }
}

TEST_F(products, bind_scenes_and_groups_as_well) {
    hand_over(engr_sf_send_scene_oper_cmd,
              R"({"sid":"s","gid":"g","op":"save","actions":[{"cid":"s","dps":{"1":215}}]})");
    EXPECT_EQ(told(), R"(244/0/1/{"sid":"s","gid":"g","op":"save",)"
                      R"("reason":"data point 1 of product sensor is read-only"})");
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["l","s"]})");
    told();
    EXPECT_NE(hand_over(engr_sf_send_gw_dev_cmd, R"({"gid":"g","dps":{"1":true}})"), 0);
    EXPECT_EQ(told(), "nothing");
    gateway::set_device_field("s", "online", "0");
    EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, R"({"gid":"g","dps":{"1":true}})"), 0);
}

TEST_F(products, give_a_device_that_joins_without_data_points_those_of_its_product) {
    engr_get_gw_cntl()->permit_join(4, true, 60);
    gateway::join_device("new", "lamp");
    EXPECT_EQ(data_points("new"),
              R"({"cid":"new","dps":{"1":false,"2":10,"3":"white","4":"","5":0}})");
}

TEST_F(device_services, ids_that_would_break_a_json_text_are_never_stored) {
    const nlohmann::ordered_json before = gateway::status();
    for (const char *id : {R"(a\"b)", R"(a\\b)", R"(a\nb)", R"(a\u007fb)", ""}) {
        const auto refuses = [&](int32_t (*service)(sf_cmd_t *), std::string request) {
            request.replace(request.find("ID"), 2, id);
            EXPECT_NE(hand_over(service, request.c_str()), 0) << request;
        };
        refuses(engr_sf_send_grp_oper_cmd, R"({"gid":"ID","op":"add","cids":["lamp"]})");
        refuses(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["ID"]})");
        refuses(engr_sf_send_scene_oper_cmd, R"({"sid":"ID","gid":"g","op":"save","actions":[]})");
        refuses(engr_sf_send_scene_oper_cmd, R"({"sid":"s","gid":"ID","op":"save","actions":[]})");
        refuses(engr_sf_send_scene_panel_cmd, R"({"cid":"ID","buttons":[]})");
        const std::string text = nlohmann::json::parse("\"" + std::string(id) + "\"");
        EXPECT_NE(bind(R"([{"cid":")" + std::string(id) + R"(","pid":"p"}])"), 0) << id;
        EXPECT_THROW(gateway::set_gateway_field("gw_id", text + "\""), gateway::usage_error) << id;
        EXPECT_THROW(
            gateway::parse_site(R"({"devices":[{"dev_id":")" + std::string(id) + "\"}]}", "site"),
            gateway::usage_error)
            << id;
        cJSON *set = cJSON_Parse(
            (R"({"scenes":[{"sceneId":")" + std::string(id) + R"(","actions":[]}]})").c_str());
        EXPECT_NE(engr_save_scene_link(1, 5, set), 0) << id;
        cJSON_Delete(set);
        engr_get_gw_cntl()->permit_join(4, true, 60);
        EXPECT_THROW(gateway::join_device(text, "p"), gateway::usage_error) << id;
        engr_get_gw_cntl()->permit_join(4, false, 0);
    }
    EXPECT_EQ(shown("devices"), before["devices"]);
    EXPECT_EQ(shown("groups"), before["groups"]);
    EXPECT_EQ(shown("scenes"), before["scenes"]);
    EXPECT_EQ(told(), "nothing");
}

TEST_F(device_services, agent_and_services_find_a_member_in_any_letter_case) {
    using namespace lan_client::frame_type;
    EXPECT_EQ(app->ask(token_bind, R"({"Token":"t"})", true), std::to_string(token_bind) + "/7/0/");
    EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, R"({"CID":"lamp","Dps":{"1":0}})"), 0);
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"1":0}})");
    EXPECT_NE(hand_over(engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","Cid":"door","dps":{"1":0}})"), 0)
        << "expected a member given twice to be refused, whatever its letter case";
}

TEST_F(device_services, a_request_with_a_member_given_twice_or_with_very_many_is_refused) {
    EXPECT_NE(hand_over(engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","cid":"door","dps":{"1":0}})"),
              0);
    EXPECT_NE(hand_over(engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","dps":{"1":0,"1":1}})"), 0);
    std::string many = R"({"cid":"lamp","dps":{"1":0})";
    for (int i = 0; i < 254; ++i) {
        many += ",\"m" + std::to_string(i) + "\":0";
    }
    EXPECT_EQ(hand_over(engr_sf_send_gw_dev_cmd, (many + "}").c_str()), 0) << "256 are taken";
    EXPECT_NE(hand_over(engr_sf_send_gw_dev_cmd, (many + ",\"m254\":0}").c_str()), 0);
}

TEST_F(device_services, what_cannot_be_read_or_done_is_refused_without_a_change_or_a_word) {
    const struct {
        int32_t (*service)(sf_cmd_t *);
        const char *request;
    } cases[] = {
        {engr_sf_send_gw_dev_cmd, R"({"cid":"nosuch","dps":{"1":0}})"},
        {engr_sf_send_gw_dev_cmd, R"({"cid":7,"dps":{"1":0}})"},
        {engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","dps":7})"},
        {engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","dps":{"1":0,"256":0}})"},
        {engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","dps":{"1":null}})"},
        {engr_sf_send_gw_dev_cmd, "{\"cid\":\"lamp\",\"dps\":{\"1\":\"\xFF\"}}"},
        {engr_sf_send_gw_dev_cmd, R"({"gid":"nosuch","dps":{"1":0}})"},
        {engr_sf_send_gw_dev_cmd, R"({"gid":7,"dps":{"1":0}})"},
        {engr_sf_send_gw_dev_cmd, "[]"},
        {engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":[]})"},
        {engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["lamp",1]})"},
        {engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add"})"},
        {engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"join","cids":["lamp"]})"},
        {engr_sf_send_grp_oper_cmd, R"({"gid":"","op":"add","cids":["lamp"]})"},
        {engr_sf_send_scene_oper_cmd, R"({"sid":"s","op":"save","actions":[]})"},
        {engr_sf_send_scene_oper_cmd, R"({"sid":"s","gid":"g","op":"save","actions":{}})"},
        {engr_sf_send_scene_oper_cmd,
         R"({"sid":"s","gid":"g","op":"save","actions":[{"cid":"lamp"}]})"},
        {engr_sf_send_scene_oper_cmd, R"({"sid":1,"gid":"g","op":"delete"})"},
        {engr_sf_send_scene_panel_cmd, R"({"cid":"lamp"})"},
        {engr_sf_send_scene_panel_cmd,
         R"({"cid":"lamp","buttons":[{"button":0,"sid":"s","gid":"g"}]})"},
        {engr_sf_send_scene_panel_cmd, R"({"cid":"lamp","buttons":[{"button":1,"sid":"s","gid":"g"},
                                            {"button":1,"sid":"s","gid":"g"}]})"},
    };
    const nlohmann::ordered_json before = gateway::status();
    for (const auto &each : cases) {
        EXPECT_NE(hand_over(each.service, each.request), 0) << each.request;
        EXPECT_EQ(told(), "nothing") << each.request;
    }
    EXPECT_EQ(gateway::status().dump(), before.dump());
    EXPECT_EQ(data_points("lamp"), R"({"cid":"lamp","dps":{"1":true,"2":5}})");
}

TEST_F(device_services, operations_tell_every_app_their_outcome) {
    const auto groups = engr_sf_send_grp_oper_cmd;
    const auto scenes = engr_sf_send_scene_oper_cmd;
    const auto panels = engr_sf_send_scene_panel_cmd;
    const struct {
        int32_t (*service)(sf_cmd_t *);
        const char *request;
        const char *report;
    } steps[] = {
        {groups, R"({"gid":"g","op":"add","cids":["lamp"]})",
         R"(208/0/0/{"gid":"g","op":"add","cids":["lamp"]})"},
        {groups, R"({"gid":"g","op":"add","cids":["door","nosuch"]})",
         R"(208/0/1/{"gid":"g","op":"add","reason":"unknown device nosuch"})"},
        {groups, R"({"gid":"g","op":"add","cids":["lamp","door"]})",
         R"(208/0/0/{"gid":"g","op":"add","cids":["lamp","door"]})"},
        {groups, R"({"gid":"g","op":"remove","cids":["lamp"]})",
         R"(208/0/0/{"gid":"g","op":"remove","cids":["door"]})"},
        {groups, R"({"gid":"g","op":"remove","cids":["door","lamp"]})",
         R"(208/0/1/{"gid":"g","op":"remove","reason":"device lamp is not in group g"})"},
        {groups, R"({"gid":"g","op":"delete"})", R"(208/0/0/{"gid":"g","op":"delete","cids":[]})"},
        {groups, R"({"gid":"g","op":"delete"})",
         R"(208/0/1/{"gid":"g","op":"delete","reason":"unknown group g"})"},
        {scenes,
         R"({"sid":"s","gid":"g","op":"save","actions":[{"cid":"lamp","dps":{"1":false}}]})",
         R"(244/0/0/{"sid":"s","gid":"g","op":"save"})"},
        {scenes, R"({"sid":"t","gid":"g","op":"save","actions":[{"cid":"nosuch","dps":{"1":0}}]})",
         R"(244/0/1/{"sid":"t","gid":"g","op":"save","reason":"unknown device nosuch"})"},
        {scenes, R"({"sid":"t","gid":"g","op":"delete"})",
         R"(244/0/1/{"sid":"t","gid":"g","op":"delete","reason":"unknown scene t of group g"})"},
        {panels, R"({"cid":"door","buttons":[{"button":1,"sid":"s","gid":"g"}]})",
         R"(248/0/0/{"cid":"door","buttons":1})"},
        {panels, R"({"cid":"door","buttons":[{"button":2,"sid":"t","gid":"g"}]})",
         R"(248/0/1/{"cid":"door","reason":"unknown scene t of group g"})"},
        {panels, R"({"cid":"nosuch","buttons":[]})",
         R"(248/0/1/{"cid":"nosuch","reason":"unknown device nosuch"})"},
    };
    for (const auto &step : steps) {
        EXPECT_EQ(hand_over(step.service, step.request), 0) << step.request;
        EXPECT_EQ(told(), step.report);
    }
    EXPECT_EQ(shown("scenes").dump() + shown("scene_panels").dump(), R"({"g":1}{"door":1})");
}

TEST_F(device_services, scenes_apply_to_the_devices_that_are_left) {
    const auto execute = engr_get_gw_cntl()->scene_exec;
    EXPECT_NE(execute(2, "FFFFFFFFFFFFFFFF", "g", "s"), 0) << "there is no such scene";
    hand_over(engr_sf_send_scene_oper_cmd,
              R"({"sid":"s","gid":"g","op":"save","actions":[{"cid":"door","dps":{"1":1}},
                  {"cid":"lamp","dps":{"1":2}},{"cid":"lamp","dps":{"5":3}}]})");
    told();
    EXPECT_EQ(engr_gw_unbind_device_inner(engr_get_dev_cntl("door")), 0);
    EXPECT_EQ(told(), R"(228/0/0/{"cid":"door"})");
    EXPECT_EQ(execute(2, "FFFFFFFFFFFFFFFF", "g", "s"), 0);
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"1":2}})");
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"5":3}})");
    EXPECT_EQ(data_points("lamp"), R"({"cid":"lamp","dps":{"1":2,"2":5,"5":3}})");
    engr_gw_unbind_device_inner(engr_get_dev_cntl("lamp"));
    EXPECT_NE(execute(2, "FFFFFFFFFFFFFFFF", "g", "s"), 0) << "no device of the scene is left";
}

TEST_F(device_services, queries_are_answered_by_a_report_or_refused) {
    const struct {
        const char *cid;
        const char *dp_id;
        const char *report; /**< null: refused */
    } cases[] = {
        {R"("lamp")", nullptr, R"(8/0/0/{"cid":"lamp","dps":{"1":true,"2":5}})"},
        {R"("lamp")", "2", R"(8/0/0/{"cid":"lamp","dps":{"2":5}})"},
        {R"("lamp")", "[2,1]", R"(8/0/0/{"cid":"lamp","dps":{"2":5,"1":true}})"},
        {R"("lamp")", "[1,9]", nullptr},
        {R"("lamp")", "[]", nullptr},
        {R"("lamp")", "1.5", nullptr},
        {R"("lamp")", "1e300", nullptr},
        {R"("lamp")", R"("1")", nullptr},
        {R"("lamp")", "[[1]]", nullptr},
        {R"("nosuch")", nullptr, nullptr},
        {R"("door")", nullptr, nullptr},
        {"7", nullptr, nullptr},
        {nullptr, nullptr, nullptr},
    };
    for (const auto &each : cases) {
        const auto parse = [](const char *text) { return text ? cJSON_Parse(text) : nullptr; };
        cJSON *cid = parse(each.cid);
        cJSON *dp_id = parse(each.dp_id);
        EXPECT_EQ(engr_sf_respone_obj_dp_query(cid, dp_id) == 0, each.report != nullptr);
        EXPECT_EQ(told(), each.report != nullptr ? each.report : "nothing") << gateway.trace.back();
        cJSON_Delete(cid);
        cJSON_Delete(dp_id);
    }
}

TEST_F(device_services, a_binding_request_is_entered_whole_or_not_at_all) {
    const auto hand_in = [](const std::string &text) {
        return gw_engineer_add_sub_dev_to_list(text.c_str(), static_cast<uint32_t>(text.size()));
    };
    for (const char *wrong :
         {R"({"products":{}})", R"({"products":[{"cid":"n1","pid":"p"},{"cid":"n2"}]})",
          R"({"products":[{"cid":"n1","pid":"p"},{"cid":"n1","pid":"p"}]})",
          R"({"products":[{"cid":"n1","pid":"p"},{"cid":"12345678901234567890123456","pid":"p"}]})",
          R"({"products":[{"cid":1,"pid":"p"}]})",
          R"({"products":[{"cid":"n1","pid":"p"},{"cid":"GW1","pid":"p"}]})",
          "{\"products\":[]} trailing", ""}) {
        EXPECT_NE(hand_in(wrong), 0) << wrong;
        EXPECT_EQ(told(), "nothing") << wrong;
    }
    EXPECT_EQ(shown("devices"), 2);
    EXPECT_EQ(bind(R"([{"cid":"lamp","pid":"other"},{"cid":"n1","pid":"p"}])"), 0);
    EXPECT_EQ(told(), R"(243/0/0/{"products":[{"cid":"n1","pid":"p"}]})");
    EXPECT_EQ(told(), "nothing") << "a device that is bound already is no news";
    EXPECT_STREQ(engr_get_dev_cntl("lamp")->pid, "other");
    EXPECT_EQ(data_points("lamp"), R"({"cid":"lamp","dps":{"1":true,"2":5}})");
    EXPECT_EQ(engr_get_dev_cntl("n1")->state, uint32_t{DEV_STATE_BOUND});
    int32_t channel = 0;
    EXPECT_EQ(engr_gw_cntl_init_local(&channel), 0);
    EXPECT_EQ(channel, 20);
}

TEST_F(device_services, the_record_of_a_device_that_left_stays_readable_and_serves_it_again) {
    hand_over(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["door","lamp"]})");
    told();
    dev_cntl_t *door = engr_get_dev_cntl("door");
    EXPECT_EQ(engr_gw_unbind_device_inner(door), 0);
    EXPECT_EQ(told(), R"(228/0/0/{"cid":"door"})");
    EXPECT_STREQ(door->dev_id, "door");
    EXPECT_EQ(door->state, uint32_t{DEV_STATE_FREE});
    EXPECT_NE(engr_gw_unbind_device_inner(door), 0) << "it is gone already";
    EXPECT_NE(engr_gw_unbind_device_inner(engr_get_gw_dev_cntl()), 0) << "the gateway itself";
    EXPECT_EQ(engr_get_dev_cntl("door"), nullptr);
    EXPECT_EQ(shown("groups").dump(), R"({"g":1})");
    EXPECT_EQ(bind(R"([{"cid":"door","pid":"p9"},{"cid":"z","pid":"p"}])"), 0);
    EXPECT_EQ(engr_get_dev_cntl("door"), door);
    std::string list;
    for (dev_cntl_t *each = engr_get_gw_cntl()->dev_list; each != nullptr; each = each->next) {
        list += std::string(each->dev_id) + " ";
    }
    EXPECT_EQ(list, "lamp door z ");
    EXPECT_EQ(engr_get_gw_cntl()->dev_count, 3U);
}

TEST_F(device_services, the_linkage_set_is_replaced_whole_and_executed_as_loaded) {
    const auto save = [](int32_t total, int32_t modified, const char *text) {
        cJSON *request = cJSON_Parse(text);
        const int32_t result = engr_save_scene_link(total, modified, request);
        cJSON_Delete(request);
        return result;
    };
    const char *set =
        R"({"scenes":[{"sceneId":"1","name":"n","actions":[{"cid":"lamp","dps":{"1":0}}]},
                                    {"sceneId":"2","actions":[]}]})";
    EXPECT_EQ(engr_check_modify_time_changed(5), 1);
    EXPECT_EQ(save(2, 5, set), 0);
    EXPECT_EQ(engr_check_modify_time_changed(5), 0);
    EXPECT_EQ(engr_check_modify_time_changed(-5), 1);
    EXPECT_NE(scene_linkage_scene_exe("1"), 0) << "not loaded yet";
    EXPECT_EQ(engr_load_scene_info_from_disk(), 0);
    EXPECT_EQ(scene_linkage_scene_exe("1"), 0);
    EXPECT_EQ(told(), R"(8/0/0/{"cid":"lamp","dps":{"1":0}})");
    EXPECT_NE(save(1, 6, set), 0) << "totalCount differs";
    EXPECT_NE(save(-1, 6, set), 0);
    EXPECT_NE(
        save(2, 6, R"({"scenes":[{"sceneId":"1","actions":[]},{"sceneId":"1","actions":[]}]})"), 0);
    EXPECT_EQ(shown("linkage").dump(), R"({"scenes":2,"modified":5,"loaded":2})")
        << "a set that is refused leaves the stored one alone";
    EXPECT_EQ(engr_reset_scene_info_to_disk(), 0);
    EXPECT_NE(save(1, 6, set), 0);
    EXPECT_NE(scene_linkage_scene_exe("1"), 0) << "a set that is not stored is not executed";
    EXPECT_EQ(shown("linkage").dump(), R"({"scenes":0,"modified":null,"loaded":0})");
    EXPECT_EQ(engr_scene_linkage_module_reinit(), 0);
    EXPECT_EQ(shown("linkage").dump(), R"({"scenes":0,"modified":null,"loaded":0})");
}

} // namespace
