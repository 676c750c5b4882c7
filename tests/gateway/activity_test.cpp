// What the gateway tells whoever watches it.
#include "commissioned_gateway.h"

#include "gateway/config.h"
#include "gateway/group.h"
#include "gateway/scene.h"

namespace {

struct activity : commissioned_gateway {
    static void set_channel(const std::string &request) {
        gw_set_channel(request.c_str(), static_cast<uint32_t>(request.size()));
    }
};

TEST_F(activity, each_change_by_an_app_is_one_line) {
    const auto operate = [](int32_t (*service)(sf_cmd_t *), const char *request) {
        return [=] { hand_over(service, request); };
    };
    const struct {
        std::function<void()> deed;
        const char *line;
    } cases[] = {
        {[] { set_channel(R"({"channel":14})"); }, "an app set the channel to 14"},
        {[] { set_channel(R"({"channel":9})"); },
         "failed: request: channel: is 9; it may be 11 to 26"},
        {[] { bind(R"([{"cid":"a","pid":"p"},{"cid":"b","pid":"p"}])"); },
         "an app bound devices a and b"},
        {[] { engr_gw_unbind_device_inner(engr_get_dev_cntl("a")); }, "an app unbound device a"},
        {operate(engr_sf_send_gw_dev_cmd, R"({"cid":"lamp","dps":{"1":false}})"),
         R"(an app set {"1":false} of device lamp)"},
        {operate(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"add","cids":["lamp","door"]})"),
         "an app added devices lamp and door to group g"},
        {operate(engr_sf_send_gw_dev_cmd, R"({"gid":"g","dps":{"2":7}})"),
         R"(an app set {"2":7} of group g)"},
        {operate(engr_sf_send_grp_oper_cmd, R"({"gid":"g","op":"remove","cids":["door"]})"),
         "an app removed device door from group g"},
        {operate(engr_sf_send_grp_oper_cmd, R"({"gid":"h","op":"delete"})"),
         "failed: unknown group h"},
        {operate(
             engr_sf_send_scene_oper_cmd,
             R"({"gid":"g","sid":"s","op":"save","actions":[{"cid":"lamp","dps":{"1":true}}]})"),
         "an app saved scene s of group g"},
        {operate(engr_sf_send_scene_panel_cmd,
                 R"({"cid":"door","buttons":[{"button":1,"sid":"s","gid":"g"}]})"),
         "an app assigned 1 button of panel door"},
        {[] { engr_get_gw_cntl()->scene_exec(0, nullptr, "g", "s"); },
         "an app ran scene s of group g"},
        {[] { engr_gw_user_token_bind("t0k3n"); }, "an app bound a token"},
        {[] { gw_wifi_modify_and_conn("office", "secret99"); },
         "an app moved the gateway to Wi-Fi network office"},
        {[] { engr_get_gw_cntl()->permit_join(4, true, 3); }, "an app opened joining for 3 s"},
    };
    for (const auto &each : cases) {
        gateway.activity.clear();
        each.deed();
        EXPECT_THAT(gateway.activity, testing::ElementsAre(each.line));
    }
}

TEST_F(activity, what_happens_by_itself_is_told_too) {
    engr_get_gw_cntl()->permit_join(4, true, 3);
    gateway.activity.clear();
    world.run_for(4000);
    EXPECT_THAT(gateway.activity,
                testing::ElementsAre("device new1 joined", "joining closed: its time is over"));
}

} // namespace
