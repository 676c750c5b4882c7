// What people and scripts get to see of text that came from the network.
#include "base/escape.h"
#include "base/failure.h"
#include "base/json_text.h"
#include "gateway/events.h"
#include "lan_client/frame_types.h"
#include "terminal/progress_bar.h"
#include "terminal/table.h"
#include "upgrade/version_order.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

namespace frame_type = lan_client::frame_type;
using namespace engr_app;

TEST(escape_for_terminal, shows_nothing_that_steers_a_terminal) {
    const struct {
        std::string text;
        const char *shown;
    } cases[] = {
        {"plain é 漢", "plain é 漢"},
        {"\x1b[2Jgone", "\\x1b[2Jgone"},
        {"a\r\n\tb", "a\\r\\n\\tb"},
        {std::string("nul\0", 4), "nul\\x00"},
        {"bad \xff\xc3(", "bad \\xff\\xc3("},
        {"overlong \xc0\x9b", "overlong \\xc0\\x9b"},
        {"c1 \xc2\x9b", "c1 \\u{9b}"},
        {"abc\u202etxt", "abc\\u{202e}txt"},
        {"zero\u200bwidth", "zero\\u{200b}width"},
        {"surrogate \xed\xa0\x80", "surrogate \\xed\\xa0\\x80"},
        {"e\u0301\u0301\u0301\u0301\u0301", "e\u0301\u0301\u0301"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(escape_for_terminal(one.text, 100), one.shown);
    }
}

TEST(escape_for_terminal, is_cut_to_columns_not_bytes_and_never_inside_a_character) {
    EXPECT_EQ(escape_for_terminal("12345", 5), "12345");
    EXPECT_EQ(escape_for_terminal("123456", 5), "1234…");
    EXPECT_EQ(escape_for_terminal("漢漢漢", 5), "漢漢…");
    EXPECT_EQ(escape_for_terminal("漢漢漢", 4), "漢…");
    EXPECT_EQ(escape_for_terminal("ab\n\n", 5), "ab\\n…")
        << "an escape is kept whole or not at all";
    EXPECT_EQ(escape_for_terminal("abc", 0), "");
    EXPECT_EQ(text_columns("漢é…"), 4u);
}

TEST(secrets, are_hidden_at_any_depth_also_in_text_that_can_not_be_parsed) {
    EXPECT_EQ(without_secrets(R"({"ssid":"n","passwd":"p","in":[{"localKey":"k"}]})"),
              R"({"in":[{"localKey":"***"}],"passwd":"***","ssid":"n"})");
    EXPECT_EQ(without_secrets(R"({"token":true})"), R"({"token":true})");
    EXPECT_EQ(without_secrets(R"({"passwd":"p)").find("\"p"), std::string::npos);
}

TEST(foreign_json, deep_nesting_and_bad_utf8_do_no_harm) {
    EXPECT_TRUE(
        parse_json(std::string(1'000'000, '[') + std::string(1'000'000, ']')).is_discarded());
    EXPECT_FALSE(parse_json(R"({"text":"[[[\"{{{"})").is_discarded());
    EXPECT_EQ(one_line(payload_json("{\"id\":\"a\xff\"}")), "{\"id\":\"a\uFFFD\"}");
    EXPECT_EQ(payload_json("no json"), "no json");
}

TEST(written_json, escapes_what_a_terminal_could_obey) {
    const nlohmann::json value{{"id", "\u0085\u007f\u202e\U000e0001 é 漢"}};
    const std::string escaped = R"("\u0085\u007f\u202e\udb40\udc01 é 漢")";
    EXPECT_EQ(one_line(value), "{\"id\":" + escaped + "}");
    EXPECT_EQ(many_lines(value), "{\n  \"id\": " + escaped + "\n}");
    EXPECT_EQ(parse_json(one_line(value)), value);
}

TEST(reports, become_sentences) {
    const struct {
        std::uint32_t type;
        const char *payload;
        const char *words;
    } cases[] = {
        {frame_type::dp_report, R"({"cid":"a1","dps":{"1":true,"2":50}})",
         "device a1 reports 1 = true, 2 = 50"},
        {frame_type::dp_report, R"({"dps":{"1":"on"}})", "the gateway reports 1 = \"on\""},
        {frame_type::gw_unactive_rpt, R"({"cid":"gw"})", "gateway gw was deactivated"},
        {frame_type::sub_dev_unbind_rpt, R"({"cid":"a1"})", "device a1 was unbound"},
        {frame_type::upgrade_percent_rpt, R"({"firmwareType":0, "cid":"", "progress":42})",
         "upgrade of the gateway: 42 %"},
        {frame_type::subdevice_update_rpt, R"({"firmwareType":10, "cid":"a1", "softVer":"1.2"})",
         "device a1 now has version 1.2"},
        {frame_type::sub_dev_bind_rpt, R"({"products":[{"cid":"a1","pid":"p"}]})",
         "device a1 was bound (product p)"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(event_sentence(event_of({.type = one.type, .payload = one.payload})), one.words);
    }
    for (const auto &[type, payload] :
         {std::pair(frame_type::sub_dev_bind_rpt, R"({"products":[{"cid":"a1)"),
          {frame_type::dp_report, "odd"},
          {77u, ""}}) {
        EXPECT_EQ(event_of({.type = type, .payload = payload})["event"], "other") << type;
    }
    EXPECT_EQ(raw_report_text({.type = 77, .payload = "odd"}), "type 77: odd");
    EXPECT_EQ(raw_report_text({.type = frame_type::dp_report, .readable = false}),
              "FRM_DP_REPORT (8) that can't be decrypted with the key at hand");
}

TEST(table, gives_way_from_the_right_but_never_in_the_state) {
    const table devices{
        {"CID", "PID", "STATE"},
        {{"a4c1380001000001", "zbswitch2gang001", "offline"}, {"\x1b[2J", "p", "-"}}};
    const struct {
        table_view view;
        std::size_t columns;
        bool colour;
        const char *text;
    } cases[] = {
        {{},
         80,
         false,
         "CID               PID               STATE\n"
         "a4c1380001000001  zbswitch2gang001  offline\n"
         "\\x1b[2J           p                 -\n"},
        {{},
         40,
         false,
         "CID               PID            STATE\n"
         "a4c1380001000001  zbswitch2gan…  offline\n"
         "\\x1b[2J           p              -\n"},
        {{},
         10,
         false,
         "CID       PID       STATE\n"
         "a4c1380…  zbswitc…  offline\n"
         "\\x1b[2J   p         -\n"},
        {{.filters = {{"pid", "ZB"}}, .header = false},
         80,
         true,
         "a4c1380001000001  zbswitch2gang001  \x1b[31moffline\x1b[0m\n"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(table_for_terminal(apply(one.view, devices), one.view, one.columns, one.colour),
                  one.text);
    }
}

TEST(table, is_sorted_by_numbers_and_quoted_where_csv_needs_it) {
    const table points{{"DP", "VALUE"}, {{"10", "a,\"b\""}, {"9", "x\ny"}, {"9", "z"}}};
    const table_view view{.fields = {"value", "dp"}, .sort_by = "dp", .csv = true};
    EXPECT_EQ(table_text(apply(view, points), view),
              "VALUE,DP\n\"x\ny\",9\nz,9\n\"a,\"\"b\"\"\",10\n");
    EXPECT_EQ(table_text(points, {}), "DP\tVALUE\n10\ta,\"b\"\n9\tx\\ny\n9\tz\n");
    EXPECT_THROW(static_cast<void>(apply({.sort_by = "size"}, points)), failure);
}

TEST(table, breaks_a_sentence_at_the_end_of_a_row_into_lines) {
    const table steps{{"ITEM", "WHAT"},
                      {{"channel", "the gateway took it, but still has channel 11, planned 20"}}};
    EXPECT_EQ(table_for_terminal(steps, {}, 42, false), "ITEM     WHAT\n"
                                                        "channel  the gateway took it, but still\n"
                                                        "         has channel 11, planned 20\n");
    EXPECT_EQ(table_text(steps, {}),
              "ITEM\tWHAT\nchannel\tthe gateway took it, but still has channel "
              "11, planned 20\n");
}

TEST(versions, are_ordered_by_their_numbers) {
    for (const auto &[older, newer] :
         {std::pair("2.0.9", "2.0.10"), {"v1.9", "2"}, {"1.0-rc1", "1.0-rc2"}}) {
        EXPECT_TRUE(is_older_version(older, newer)) << older << " " << newer;
        EXPECT_FALSE(is_older_version(newer, older)) << newer << " " << older;
    }
    for (const auto &[one, same] : {std::pair("2.0", "2"), {"1.01", "1.1"}, {"", "1"}}) {
        EXPECT_FALSE(is_older_version(one, same) || is_older_version(same, one))
            << one << " " << same;
    }
}

TEST(progress_bar, shows_what_is_known_and_never_fills_the_last_column) {
    const bar_figures half{.label = "log",
                           .unit = "",
                           .done = 1536,
                           .total = 3072,
                           .rate_per_s = 512,
                           .elapsed = std::chrono::seconds(3)};
    bar_figures whole = half;
    whole.done = whole.total;
    const bar_figures unknown{
        .label = "log", .unit = "", .done = 700, .total = 0, .rate_per_s = 0, .elapsed = {}};
    const bar_figures devices{.label = "gw\x1b: points",
                              .unit = "devices",
                              .done = 1,
                              .total = 10000,
                              .rate_per_s = 2,
                              .elapsed = {}};
    bar_figures waiting = half;
    waiting.waits_for = "waiting for the gateway, 3 s";
    const struct {
        const bar_figures &shown;
        std::size_t columns;
        const char *line;
    } cases[] = {
        {half, 80,
         "log  [###########...........]   50 %  1.5 KiB of 3.0 KiB  512 bytes/s  3 s left"},
        {half, 60, "log   50 %  1.5 KiB of 3.0 KiB  512 bytes/s  3 s left"},
        {half, 20, "log   50 %  1.5 Ki…"},
        {whole, 80, "log  [##############################]  100 %  3.0 KiB  512 bytes/s  in 3 s"},
        {waiting, 80, "log  [###############...............]   50 %  waiting for the gateway, 3 s"},
        {unknown, 80, "log  700 bytes"},
        {{.label = "installing", .unit = "%", .done = 40, .total = 100, .rate_per_s = 2},
         80,
         "installing  [############..................]   40 %"},
        {devices, 80,
         "gw\\x1b: points  [.................]    0 %  1 of 10000 devices  "
         "1 h 23 min left"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(bar_line(one.shown, one.columns), one.line);
    }
    EXPECT_EQ(plain_bar_line(half), "log: 50 %  1.5 KiB of 3.0 KiB  512 bytes/s  3 s left");
}

} // namespace
