// Reading of what a gateway answers and reports: JSON, devices, data points; and the text of a
// configuration.
#include "lan_client/client.h"
#include "lan_client/data_points.h"
#include "lan_client/devices.h"
#include "lan_client/frame_types.h"
#include "lan_client/json.h"
#include "lan_client/limits.h"
#include "lan_client/provisioning.h"
#include "lan_client/upgrade_monitor.h"
#include "utf8.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace lan_client;

std::string repeated(const std::string &text, std::size_t count) {
    std::string all;
    for (std::size_t made = 0; made < count; ++made) {
        all += text;
    }
    return all;
}

TEST(answer_json, is_refused_when_it_is_nested_more_than_200_deep) {
    const struct {
        const char *what;
        std::string text;
        bool is_taken;
    } cases[] = {
        {"lists", repeated("[", 200) + repeated("]", 200), true},
        {"lists, one too many", repeated("[", 201) + repeated("]", 201), false},
        {"objects", repeated(R"({"a":)", 200) + "1" + repeated("}", 200), true},
        {"objects, one too many", repeated(R"({"a":)", 201) + "1" + repeated("}", 201), false},
        {"one after the other", "[" + repeated("[],{},", 300) + "0]", true},
        {"in a text", R"([")" + repeated("[", 300) + R"("])", true},
        {"behind an escaped quote", R"(["\")" + repeated("[", 300) + R"("])", true},
        {"behind an escaped backslash", R"(["\\",)" + repeated("[", 200) + repeated("]", 201),
         false},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(!parse_json(one.text).is_discarded(), one.is_taken) << one.what;
    }
}

TEST(answer_json, has_a_bounded_number_of_values) {
    // Brackets and commas stand for the values before and behind them.
    const auto zeros = [](std::size_t count) { return "[" + repeated("0,", count - 1) + "0]"; };
    EXPECT_FALSE(parse_json(zeros(max_json_values - 1)).is_discarded());
    EXPECT_TRUE(parse_json(zeros(max_json_values)).is_discarded());
    const auto with_list = [](std::size_t count) { return "[" + repeated("0,", count) + "[]]"; };
    EXPECT_FALSE(parse_json(with_list(max_json_values - 3)).is_discarded());
    EXPECT_TRUE(parse_json(with_list(max_json_values - 2)).is_discarded());
}

TEST(answer_json, is_read_whatever_its_bytes_are) {
    const struct {
        const char *bytes;
        const char *text;
    } cases[] = {
        {"caf\u00e9", "caf\u00e9"},
        {"a\xff"
         "b",
         "a\ufffdb"},
        {"\xe2\x82", "\ufffd\ufffd"},
        {"", ""},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(parse_json('"' + std::string(one.bytes) + '"'), one.text) << one.text;
        EXPECT_EQ(to_utf8(one.bytes), one.text);
        EXPECT_EQ(is_utf8(one.bytes), std::string(one.bytes) == one.text) << one.text;
    }
    EXPECT_TRUE(parse_json("{").is_discarded());
    EXPECT_TRUE(parse_json("]").is_discarded());
}

TEST(answer_json, members_are_texts_and_counts_or_nothing) {
    const auto object = parse_json(R"({"t":"x","n":7,"f":1.5,"m":-1,"l":[1],"s":"7"})");
    EXPECT_EQ(member_text(object, "t"), "x");
    EXPECT_EQ(member_text(object, "n"), "7");
    EXPECT_EQ(member_text(object, "l"), "[1]");
    EXPECT_EQ(member_text(object, "none"), "");
    EXPECT_EQ(member_text(parse_json(R"({"l":["é"]})"), "l"), R"(["é"])");
    EXPECT_EQ(member_text(parse_json("[]"), "t"), "");
    EXPECT_EQ(member_count(object, "n"), 7U);
    for (const char *none : {"f", "m", "s", "l", "none"}) {
        EXPECT_FALSE(member_count(object, none)) << none;
    }
    EXPECT_FALSE(member_count(parse_json("[]"), "n"));
}

TEST(answer_devices, are_read_with_their_states) {
    const auto devices = read_device_list(
        R"({"products":[{"cid":"a","pid":"p"},{"cid":"b"},{"cid":"c"},{"cid":"d"}]})");
    ASSERT_TRUE(devices);
    EXPECT_EQ(devices->front().product_id, "p");
    for (const char *none :
         {"[]", "{}", R"({"products":{}})", "products",
          R"({"products":{"products":[{"cid":"a"}]}})",
          R"({"products":[{"cid":"a"}],"products":7})", R"({"products":[{"cid":"a"}]}})",
          R"({"products":[{"cid":"\udc00"}]})", R"({"products":[{"\udc00":"a"}]})"}) {
        EXPECT_FALSE(read_device_list(none)) << none;
    }
    EXPECT_FALSE(read_device_list(std::string(R"({"products":[]})") + '\0' + "{"))
        << "expected all of the text to be read";
    const auto odd = read_device_list(
        R"({"n":[1],"products":["x",[{"cid":"in"}],{"cid":7,"pid":{"products":[1]}}],)"
        R"("o":{"l":[2]}})");
    ASSERT_TRUE(odd);
    std::string entries;
    for (const device &one : *odd) {
        entries += one.id + ":" + one.product_id + " ";
    }
    EXPECT_EQ(entries, ": : 7: ") << "each entry once, and no other list's";
    const auto states = read_line_state(R"({"online":["a","c",7],"offline":["b","c"],"else":[]})");
    ASSERT_TRUE(states);
    std::string story;
    for (const device_with_state &one : with_states(*devices, *states)) {
        story += one.id + (!one.online ? "? " : *one.online ? "+ " : "- ");
    }
    EXPECT_EQ(story, "a+ b- c+ d? ");
    EXPECT_EQ(as_json({{"a", "p", false}, {"b", "", {}}}),
              parse_json(R"([{"cid":"a","pid":"p","online":false},)"
                         R"({"cid":"b","pid":"","online":null}])"));
    EXPECT_FALSE(read_line_state("[]"));
    EXPECT_TRUE(read_line_state(R"({"online":"a"})")->online.empty());
    const auto list_of = [](std::size_t count) {
        return R"({"products":[)" + repeated(R"({"cid":"a"},)", count - 1) + R"({"cid":"a"}]})";
    };
    EXPECT_EQ(read_device_list(list_of(131'072)).value().size(), 131'072U);
    EXPECT_FALSE(read_device_list(list_of(131'073))) << "expected no more than the limit";
    EXPECT_EQ(device_list_request().type, frame_type::dev_list);
    EXPECT_EQ(line_state_request().type, frame_type::dev_line_stat);
}

TEST(answer_data_points, belong_to_the_device_that_the_report_names) {
    EXPECT_EQ(parse_device_state(R"({"cid":"a","dps":{"1":true},"t":1})"),
              parse_json(R"({"cid":"a","dps":{"1":true}})"));
    EXPECT_EQ(parse_device_state(R"({"devId":"a","dps":{}})"),
              parse_json(R"({"cid":"a","dps":{}})"));
    for (const char *none : {"[]", "{}", R"({"cid":"a"})", R"({"dps":[1]})", "no JSON"}) {
        EXPECT_TRUE(parse_device_state(none).is_null()) << none;
    }
    const report told{.type = frame_type::dp_report,
                      .payload = R"({"cid":"a","dps":{"1":0,"2":0}})"};
    EXPECT_TRUE(contains(told, "a", {"1", "2"}));
    EXPECT_FALSE(contains(told, "a", {"1", "3"}));
    EXPECT_FALSE(contains(told, "b", {"1"}));
    report other = told;
    other.readable = false;
    EXPECT_FALSE(contains(other, "a", {"1"}));
    other = told;
    other.type = frame_type::nop;
    EXPECT_FALSE(contains(other, "a", {"1"}));
    other = told;
    other.payload = "no JSON";
    EXPECT_FALSE(contains(other, "a", {}));
}

TEST(answer_data_points, are_asked_for_of_the_gateway_or_of_a_device) {
    EXPECT_EQ(known_points_query("").dump(), "{}");
    EXPECT_EQ(known_points_query("a").dump(), R"({"cid":"a"})");
    EXPECT_EQ(device_command("a", {{"1", true}}).dump(), R"({"cid":"a","dps":{"1":true}})");
    EXPECT_EQ(report_query("", {}).dump(), "{}");
    EXPECT_EQ(report_query("a", {1}).dump(), R"({"cid":"a","dpId":1})");
    EXPECT_EQ(report_query("a", {1, 2}).dump(), R"({"cid":"a","dpId":[1,2]})");
    const struct {
        bool (*says)(const answer &);
        const char *text;
    } refusals[] = {{says_unknown_device, "devid not found"},
                    {says_no_data_points, "json obj data unvalid"},
                    {says_no_devices, "online_dev or offline_dev is null"},
                    {refuses_while_upgrading, "device is upgrading..."}};
    for (const auto &one : refusals) {
        EXPECT_TRUE(one.says({.ret = 1, .payload = one.text})) << one.text;
        EXPECT_FALSE(one.says({.ret = 0, .payload = one.text})) << one.text;
        EXPECT_FALSE(one.says({.ret = 1, .payload = "other"})) << one.text;
        EXPECT_FALSE(one.says({.failure = {error_kind::timed_out, {}}, .payload = one.text}));
        EXPECT_FALSE(
            one.says({.failure = {error_kind::timed_out, {}}, .ret = 1, .payload = one.text}));
    }
    EXPECT_EQ(upgrade_probe_request().payload, "{}");
    EXPECT_EQ(upgrade_probe_request().type, frame_type::tp_cmd);
    EXPECT_EQ(upgrade_probe_request().coding, payload_coding::encrypted);
}

TEST(frame_type_names, are_found_in_any_case_with_and_without_their_prefix) {
    for (const char *name : {"FRM_DEV_LIST", "frm_dev_list", "dev_LIST"}) {
        ASSERT_NE(find_frame_type(name), nullptr) << name;
        EXPECT_EQ(find_frame_type(name)->number, 241U);
    }
    EXPECT_EQ(find_frame_type("DEV_LISTS"), nullptr);
    EXPECT_EQ(find_frame_type(9999), nullptr);
    EXPECT_EQ(frame_type_text(241), "FRM_DEV_LIST (241)");
    EXPECT_EQ(frame_type_text(9999), "type 9999");
    EXPECT_EQ(request_coding(241), payload_coding::plain);
    EXPECT_EQ(request_coding(9999), payload_coding::encrypted);
}

TEST(configuration, has_a_name_of_1_to_32_bytes_and_no_password_for_an_open_network) {
    EXPECT_TRUE(is_valid({std::string(32, 'x'), "", ""}));
    EXPECT_FALSE(is_valid({std::string(33, 'x'), "", ""}));
    EXPECT_FALSE(is_valid({"", "", ""}));
    EXPECT_FALSE(is_valid({"\xff", "", ""}));
    EXPECT_FALSE(is_valid({"x", "\xff", ""}));
    EXPECT_FALSE(is_valid({"x", "", "\xff"}));
    EXPECT_EQ(configuration_text({"n", "p", "t"}), R"({"ssid":"n","token":"t","passwd":"p"})");
    EXPECT_EQ(configuration_text({"n", "", "t"}), R"({"ssid":"n","token":"t"})");
    EXPECT_EQ(configuration_text({"né", "", "t\xff"}), "{\"ssid\":\"né\",\"token\":\"t\ufffd\"}");
    EXPECT_TRUE(is_valid({"né", "é", "é"}));
    EXPECT_EQ(configuration_bytes("0123456789", payload_coding::plain), 34U);
    EXPECT_EQ(configuration_bytes("0123456789", payload_coding::encrypted), 40U);
    EXPECT_EQ(configuration_bytes("0123456789abcdef", payload_coding::encrypted), 56U)
        << "expected a block of padding";
}

} // namespace
