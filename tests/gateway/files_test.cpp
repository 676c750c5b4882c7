// What people write: sites, scenarios and values. Each mistake is told with its place.
#include "gateway_services/error.h"
#include "gateway_services/fields.h"
#include "gateway_services/scenario.h"
#include "gateway_services/site.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

struct bad_file {
    const char *text;
    const char *complaint; /**< begins with the path of the member */
};

std::string complaint_of(const std::function<void()> &reading) {
    try {
        reading();
    } catch (const gateway::usage_error &error) {
        return error.what();
    }
    return "no complaint";
}

TEST(site_file, that_is_written_is_read_as_the_same) {
    gateway::site site = gateway::demo_site(7);
    const auto set = [&](const char *name, const char *value) {
        site.gateway.push_back({gateway::find_field(gateway::gateway_fields(), name), value});
    };
    set("local_key", "0123456789abcdef");
    set("wf_ssid", "\xC3\xA4 net");
    const std::string text = gateway::site_text(site);
    EXPECT_EQ(gateway::site_text(gateway::parse_site(text, "f", 7)), text);
    set("wf_ssid", "\xFF");
    EXPECT_THAT(gateway::site_text(site), HasSubstr("\uFFFD"));
}

TEST(site_file, mistakes_are_told_with_file_and_member) {
    const std::string long_id(26, 'x');
    const bad_file files[] = {
        {"", "line 1, column 1: is not valid JSON in UTF-8"},
        {"[]", "f: is array, expected an object"},
        {R"({"gateway": {}, "gateway": {}})", "\"gateway\" is given twice"},
        {R"({"gatway": {}})", "gatway: unknown; there are: gateway, products, devices"},
        {R"({"gateway": 1})", "gateway: is number, expected an object"},
        {R"({"gateway": {"id": "x"}})", "gateway.id: unknown; there are: nw_cfg_stat"},
        {R"({"gateway": {"gw_id": 7}})", "gateway.gw_id: is number, expected a text"},
        {R"({"gateway": {"gw_id": "12345678901234567890123456"}})",
         "gateway.gw_id: is 26 bytes long; at most 25 fit"},
        {R"({"gateway": {"gw_id": "a\"b"}})", "gateway.gw_id: may hold neither a double quote"},
        {R"({"gateway": {"gw_id": "a\nb"}})", "gateway.gw_id: may hold printable ASCII"},
        {R"({"gateway": {"wf_ssid": "a\u0000b"}})", "gateway.wf_ssid: holds a control character"},
        {R"({"gateway": {"local_key": "123"}})",
         "gateway.local_key: has 3 characters; a key has 16, or none"},
        {R"({"gateway": {"active_stat": 256}})", "gateway.active_stat: is 256; it may be 0 to 255"},
        {R"({"gateway": {"active_stat": true}})",
         "gateway.active_stat: is boolean, expected a whole number"},
        {R"({"gateway": {"channel": 10}})", "gateway.channel: is 10; it may be 11 to 26"},
        {R"({"gateway": {"nw_cfg_stat": 18446744073709551615}})",
         "gateway.nw_cfg_stat: is 18446744073709551615"},
        {R"({"devices": {}})", "devices: is object, expected an array"},
        {R"({"devices": [{"dev_id": "a"}, {}]})", "devices[1]: has no dev_id"},
        {R"({"devices": [{"dev_id": ""}]})", "devices[0].dev_id: may not be empty"},
        {R"({"devices": [{"dev_id": "a"}, {"dev_id": "b"}, {"dev_id": "a"}]})",
         "devices[2].dev_id: 'a' is given twice"},
        {R"({"devices": [{"dev_id": "a", "online": 1.5}]})", "devices[0].online: is not whole"},
        {R"({"devices": [{"dev_id": "a", "excluded": 128}]})",
         "devices[0].excluded: is 128; it may be -128 to 127"},
        {R"({"devices": [{"dev_id": "a", "dps": []}]})", "devices[0].dps: is not an object"},
        {R"({"devices": [{"dev_id": "a", "dps": {"0": 1}}]})",
         "devices[0].dps: '0' is not a data-point number"},
        {R"({"devices": [{"dev_id": "a", "dps": {"1": null}}]})",
         "devices[0].dps: the value of data point 1"},
        {R"({"products": {"": {}}})", "products.: may not be empty"},
        {R"({"products": {"p": {"0": {"kind": "bool"}}}})",
         "products.p.0: is not a data-point number, 1 to 255"},
        {R"({"products": {"p": {"1": {}}}})", "products.p.1: has no kind"},
        {R"({"products": {"p": {"1": {"kind": "real"}}}})",
         "products.p.1.kind: is none of bool, value, enum, text"},
        {R"({"products": {"p": {"1": {"kind": "bool", "min": 1}}}})",
         "products.p.1.min: unknown; there are: kind, read_only"},
        {R"({"products": {"p": {"1": {"kind": "value", "min": 2, "max": 1}}}})",
         "products.p.1: max is below min"},
        {R"({"products": {"p": {"1": {"kind": "enum"}}}})", "products.p.1: has no values"},
        {R"({"products": {"p": {"1": {"kind": "enum", "values": []}}}})",
         "products.p.1.values: has 0 elements"},
        {R"({"products": {"p": {"1": {"kind": "text", "max_bytes": 1025}}}})",
         "products.p.1.max_bytes: is 1025; it may be 1 to 1024"},
        {R"({"products": {"p": {"1": {"kind": "bool", "read_only": 1}}}})",
         "products.p.1.read_only: is number, expected true or false"},
        {R"({"devices": [{"dev_id": "a", "pid": "p", "dps": {"1": 1}}],
             "products": {"p": {"1": {"kind": "bool"}}}})",
         "devices[0].dps: data point 1 of product p takes true or false"},
        {R"({"products": {"p": {}}, "joining": [{"dev_id": "a", "pid": "p", "dps": {"1": 1}}]})",
         "joining[0].dps: product p has no data point 1"},
        {R"({"groups": [{"gid": "g", "cids": ["a"]}], "joining": [{"dev_id": "a"}]})",
         "groups: 'a' is none of the devices"},
        {R"({"groups": [{"gid": "g", "cids": []}]})", "groups[0].cids: has 0 elements"},
        {R"({"scenes": [{"gid": "g", "sid": "s", "actions": []},
                        {"gid": "h", "sid": "s", "actions": []},
                        {"gid": "g", "sid": "s", "actions": []}]})",
         "scenes[2].sid: 's' is given twice"},
        {R"({"panels": [{"cid": "a", "buttons": []}]})", "panels: 'a' is none of the devices"},
        {R"({"linkage": {"scenes": []}})", "linkage: has no modified"},
    };
    for (const bad_file &file : files) {
        const std::string said = complaint_of([&] { gateway::parse_site(file.text, "f"); });
        EXPECT_THAT(said, testing::StartsWith("f: ")) << file.text;
        EXPECT_THAT(said, HasSubstr(file.complaint)) << file.text;
    }
}

TEST(site_file, what_is_left_out_has_its_default) {
    EXPECT_TRUE(gateway::parse_site("{}", "f").devices.empty());
    const gateway::site site = gateway::parse_site(
        R"({"devices": [{"online": true, "dev_id": "a", "excluded": -1}]})", "f");
    ASSERT_EQ(site.devices.size(), 1U);
    EXPECT_EQ(site.devices[0].fields.size(), 3U);
    EXPECT_EQ(site.gateway.size(), gateway::default_gateway().size());
}

TEST(scenario_file, mistakes_are_told_with_file_and_member) {
    const bad_file files[] = {
        {R"({"service": {}})", "service: unknown; there are: services, callbacks"},
        {R"({"upgrade": {"chunk": 1}})", "upgrade.chunk: unknown; there are: chunk_size, "},
        {R"({"upgrade": {"remain_len": -1}})", "upgrade.remain_len: is -1; it may be 0 to"},
        {R"({"upgrade": {"never_start": "yes"}})", "upgrade.never_start: is string, expected"},
        {R"({"services": {"nosuch": 1}})",
         "services.nosuch: no such service; there are: engr_get_gw_ext_stat"},
        {R"({"services": {"wf_get_ip": "absent"}})",
         "services.wf_get_ip: is string, expected a whole number"},
        {R"({"services": {"wf_get_ip": 2147483648}})",
         "services.wf_get_ip: is 2147483648; it may be"},
        {R"({"services": {"engr_get_dev_cntl": -1}})",
         "services.engr_get_dev_cntl: can only be 0: it returns a pointer"},
        {R"({"services": {"engr_get_gw_ext_stat": 256}})",
         "services.engr_get_gw_ext_stat: can only be 0 to 255"},
        {R"({"callbacks": {"wf_get_ip": 0}})", "callbacks.wf_get_ip: no such callback; there are:"},
        {R"({"callbacks": {"permit_join": "away"}})",
         R"(callbacks.permit_join: is "away", expected "absent")"},
    };
    for (const bad_file &file : files) {
        EXPECT_THAT(complaint_of([&] { gateway::parse_scenario(file.text, "f"); }),
                    HasSubstr(file.complaint))
            << file.text;
    }
    EXPECT_EQ(
        gateway::parse_scenario(R"({"services": {"wf_get_ip": -7, "engr_get_dev_cntl": 0}})", "f")
            .services.size(),
        2U);
}

} // namespace
