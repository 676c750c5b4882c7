// Reading of site plans: the schema, variables and templates, and what is told of mistakes.
#include "base/failure.h"
#include "plan/changes.h"
#include "plan/plan.h"
#include "terminal/console.h"
#include "terminal/screen.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace engr_app;
using nlohmann::json;
using testing::HasSubstr;

class SitePlan : public testing::Test {
  protected:
    SitePlan() {
        std::string name = std::filesystem::temp_directory_path() / "engr-plan-XXXXXX";
        directory_ = ::mkdtemp(name.data());
    }
    ~SitePlan() override { std::filesystem::remove_all(directory_); }

    std::string file(const std::string &text, const std::string &name = "plan.yaml") const {
        std::ofstream(directory_ / name) << text;
        return directory_ / name;
    }

    site_plan read(const std::string &text, const std::string &name = "plan.yaml") {
        return {file(text, name), out_};
    }

    std::string fault(const std::string &text, const std::string &name = "plan.yaml") {
        try {
            static_cast<void>(read(text, name));
        } catch (const failure &wrong) {
            EXPECT_EQ(wrong.exit_code(), exit_wrong_usage);
            return wrong.what();
        }
        return "nothing is wrong";
    }

    std::filesystem::path directory_;
    screen shown_on_;
    console out_{shown_on_, false, true};
};

std::string gateways(const std::string &settings) {
    return "plan: 1\ngateways:\n  - {id: gw1, " + settings + "}\n";
}

TEST_F(SitePlan, TellsOfAMistakeWhereItIsAndWhatIsExpectedThere) {
    const std::string devices = "devices: [{id: a1, product: p, name: lamp}], ";
    const struct {
        std::string text;
        const char *told;
    } cases[] = {
        {"plan: 2\ngateways: [{id: a}]", "plan.yaml:1: plan: expected 1, the version"},
        {gateways("channel: 27"), "plan.yaml:3: gateways[0].channel: expected a radio channel"},
        {gateways("chanel: 17"), "plan.yaml:3: gateways[0]: unknown member chanel; known are add"},
        {gateways("devices: [{id: a1}]"), "devices[0]: product is missing: expected product id"},
        {gateways("devices: [{id: 0012, product: p}]"), "write a number in quotes"},
        {gateways("channel: 17, channel: 18"), "plan.yaml:3: member channel is given twice"},
        {gateways(devices + "groups: [{id: g, devices: [lmp]}]"),
         "gateways[0].groups[0].devices[0]: lmp is no device of the plan"},
        {gateways(devices + "groups: [{id: g, devices: [lamp, a1]}]"), "is in the group twice"},
        {gateways(devices + "groups: [{id: g, devices: [lamp]}], scenes: [{group: h, id: s, "
                            "actions: [{device: lamp, set: {1: true}}]}]"),
         "scenes[0].group: h is no group of the plan"},
        {gateways("scenes: [{group: h, id: s, actions: [{device: lamp, set: {0: true}}]}]"),
         "actions[0].set"},
        {gateways("template: flat"), "gateways[0].template: there is no template flat"},
        {gateways("devices: [{id: '${flat}', product: p}]"), "there is no variable flat"},
        {gateways("variables: {a: '${a}'}, devices: [{id: '${a}', product: p}]"),
         "variable a uses itself"},
        {gateways("configuration: {app: {text: 'x = 1'}}"), "does not end with }"},
        {gateways("other_devices: remove"), "need a list of devices"},
        {"plan: 1\ngateways: [{channel: 17}]", "a gateway needs one of id, address and match"},
        {"plan: 1\ngateways: [{id: a}, {id: a}]", "gateways[1]: another gateway of the plan has"},
        {"plan: 1\ngateways: [{address: 1.2.3.400}]", "address: expected an IPv4 address"},
        {"plan: [", "plan.yaml:1: not valid YAML"},
        {"plan: 1\n---\nplan: 1\n", "plan.yaml: expected one YAML document"},
        {", a]}\n", "expected one YAML document"},
        {std::string(300, 'x') + ": 1\n", "the name of a member has 300 bytes"},
        {"a: &a [1,1,1,1,1,1,1,1,1,1]\nb: &b [*a,*a,*a,*a,*a,*a,*a,*a,*a,*a]\n"
         "c: &c [*b,*b,*b,*b,*b,*b,*b,*b,*b,*b]\nd: &d [*c,*c,*c,*c,*c,*c,*c,*c,*c,*c]\n"
         "e: &e [*d,*d,*d,*d,*d,*d,*d,*d,*d,*d]\nf: [*e,*e,*e,*e,*e,*e,*e,*e,*e,*e]\n",
         "too many values"},
    };
    for (const auto &one : cases) {
        EXPECT_THAT(fault(one.text), HasSubstr(one.told)) << one.text;
    }
    EXPECT_THAT(fault(R"({"plan": 1, "gateways": [{"id": 5}]})", "plan.json"),
                HasSubstr("plan.json: gateways[0].id: expected the id that it announces"));
    EXPECT_EQ(fault(gateways("channel: 17")), "nothing is wrong");
}

TEST_F(SitePlan, FillsInTemplatesAndVariablesForEachGateway) {
    file("{\"rooms\": 2} \n", "app.json");
    const site_plan plan = read(R"(
plan: 1
templates:
  flat:
    variables: {prefix: "a4${flat}", flat: "00"}
    channel: 20
    devices: [{id: "${prefix}x", product: p, name: lamp}]
    groups: [{id: "g${flat}", devices: [lamp]}]
    linkage: [{id: s, actions: [{device: lamp, set: {1: "$${x} ${id}"}}]}]
    configuration: {app: {file: app.json}}
gateways:
  - {id: gw1, template: flat, variables: {flat: "01"}}
  - {match: "gw*", template: flat, channel: 11}
)");
    EXPECT_TRUE(plan.has_patterns());
    discovery_result found;
    for (const char *id : {"gw1", "gw2", "other"}) {
        found.announcements.push_back({.address = std::string("10.0.0.") + id[2],
                                       .interface_name = {},
                                       .announced_address = {},
                                       .id = id,
                                       .product_key = {},
                                       .version = {}});
    }
    const std::vector<gateway_plan> plans = plan.gateways(found);
    ASSERT_EQ(plans.size(), 2U) << "one is named, one fits the pattern, one is neither";
    EXPECT_EQ(plans[0].devices->front().id, "a401x");
    EXPECT_EQ(plans[0].channel, 20);
    EXPECT_EQ(plans[0].groups.front().id, "g01");
    EXPECT_EQ(plans[0].groups.front().devices, std::vector<std::string>{"a401x"});
    EXPECT_EQ(plans[0].app_config, "{\"rooms\": 2}");
    EXPECT_THAT(*plans[0].linkage, HasSubstr(R"("dps":{"1":"${x} gw1"})"));
    EXPECT_EQ(plans[1].id, "gw2");
    EXPECT_EQ(plans[1].address, "10.0.0.2");
    EXPECT_EQ(plans[1].channel, 11);
    EXPECT_EQ(plans[1].devices->front().id, "a400x");
}

TEST_F(SitePlan, FindsWhatAReportLacksOfThePlan) {
    const json report =
        json::parse(R"({"gateway": {"id": "gw1", "address": "10.0.0.1", "sw_ver": "2.0"},
        "channel": 15, "app_config": null, "devices": [{"cid": "a1", "pid": "q"},
        {"cid": "b2", "pid": "p", "sw_ver": "1.9"}, {"cid": "gw1", "pid": "self"}]})");
    const site_plan plan = read(gateways(
        "channel: 16, devices: [{id: a1, product: p}, {id: c3, product: p}], configuration: {app: "
        "{json: {}}}, firmware: {gateway: {image: i, version: '1.10'}, devices: {p: {image: i, "
        "version: '1.10'}}}"));
    std::vector<std::string> items;
    for (const json &one : plan_changes(plan, json::array({report}))) {
        items.push_back(one["item"].get<std::string>() + " " + one["cid"].dump());
    }
    EXPECT_THAT(items, testing::ElementsAre("channel null", "pid \"a1\"", "device \"c3\"",
                                            "other_device \"b2\"", "app_config null", "sw_ver null",
                                            "sw_ver \"b2\""));
}

} // namespace
