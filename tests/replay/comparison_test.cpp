// What counts as a difference between two plays of a session, and what the machine may decide.
#include "compare/comparison.h"
#include "compare/files.h"
#include "play/process.h"
#include "report/contrast.h"
#include "session_text.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct comparison_case {
    const char *name;
    std::initializer_list<std::string_view> expected;
    std::initializer_list<std::string_view> got;
    std::vector<std::string> differences;

    friend std::ostream &operator<<(std::ostream &out, const comparison_case &one) {
        return out << one.name;
    }
};

const comparison_case cases[] = {
    {"a report may come before the reply",
     {"1 1 < 7 253 0 a", "2 1 < 0 8 0 {\"cid\":\"a\"}"},
     {"1 1 < 0 8 0 {\"cid\":\"a\"}", "1 1 < 7 253 0 a"},
     {}},
    {"reports of two devices may change places",
     {"1 1 < 0 8 0 {\"cid\":\"a\"}", "2 1 < 0 8 0 {\"cid\":\"b\"}"},
     {"1 1 < 0 8 0 {\"cid\":\"b\"}", "1 1 < 0 8 0 {\"cid\":\"a\"}"},
     {}},
    {"reports of one device may not",
     {"1 1 < 0 8 0 {\"cid\":\"a\",\"dps\":1}", "2 1 < 0 8 0 {\"cid\":\"a\",\"dps\":2}"},
     {"1 1 < 0 8 0 {\"cid\":\"a\",\"dps\":2}", "1 1 < 0 8 0 {\"cid\":\"a\",\"dps\":1}"},
     {"unexpected 1 0 FRM_DP_REPORT", "missing 2 0 FRM_DP_REPORT"}},
    {"reports of one device may, beside one of the operator",
     {"900 operator {} report a 1=1", "901 1 < 0 8 0 {\"cid\":\"a\",\"dps\":1}",
      "902 1 < 0 8 0 {\"cid\":\"a\",\"dps\":2}"},
     {"900 operator {} report a 1=1", "901 1 < 0 8 0 {\"cid\":\"a\",\"dps\":2}",
      "902 1 < 0 8 0 {\"cid\":\"a\",\"dps\":1}"},
     {}},
    {"a report may miss an app that just connected",
     {"900 connected 1", "950 1 < 0 8 0 {\"cid\":\"a\"}", "1200 1 < 0 8 0 {\"cid\":\"b\"}"},
     {"900 connected 1"},
     {"missing 1200 0 FRM_DP_REPORT"}},
    {"an answer may come later",
     {"1 1 < 7 253 0 a", "9000 1 < 8 253 0 a"},
     {"5000 1 < 7 253 0 a", "5001 1 < 8 253 0 a"},
     {}},
    {"a text differs", {"1 1 < 7 253 0 a"}, {"1 1 < 7 253 0 b"}, {"other 1 7 FRM_GET_CHANNEL"}},
    {"a request under another key may look sound at first",
     {"1 1 > 7 7 {}", "2 1 <* 7 7 1 a", "3 1 > 8 7 {}", "4 1 < 8 7 1 a"},
     {"1 1 > 7 7 {}", "2 1 <* 7 7 1 b", "3 1 > 8 7 {}", "4 1 < 8 7 1 b"},
     {"other 4 8 FRM_TP_CMD"}},
    {"a return code differs", {"1 1 < 7 253 0"}, {"1 1 < 7 253 1"}, {"other 1 7 FRM_GET_CHANNEL"}},
    {"an answer is missing",
     {"1 1 < 7 253 0", "2 1 < 8 253 0"},
     {"2 1 < 8 253 0"},
     {"missing 1 7 FRM_GET_CHANNEL"}},
    {"another app has it",
     {"1 1 < 7 253 0"},
     {"1 2 < 7 253 0"},
     {"missing 1 7 FRM_GET_CHANNEL", "unexpected 1 7 FRM_GET_CHANNEL"}},
    {"one more of three equal answers",
     {"1 1 < 0 9 0", "2 1 < 0 9 0"},
     {"1 1 < 0 9 0", "1 1 < 0 9 0", "2 1 < 0 9 0"},
     {"unexpected 2 0 FRM_KEEPALIVE"}},
    {"nobody knows what came after the record",
     {"1 1 < 7 253 0"},
     {"1 1 < 7 253 0", "3000000 1 < 0 8 0 {}"},
     {}},
    {"the server looks for silent apps once in a cycle",
     {"120000 closed 1 gateway"},
     {"129000 closed 1 gateway"},
     {}},
    {"it is closed much earlier",
     {"120000 closed 1 gateway"},
     {"60000 closed 1 gateway"},
     {"other_time 120000 connection"}},
    {"a datagram is repeated", {"1 broadcast {}", "2 broadcast {}"}, {"1 broadcast {}"}, {}},
    {"a datagram says something else",
     {"1 broadcast {}", "2 broadcast {\"a\":1}"},
     {"1 broadcast {}", "2 broadcast {\"a\":2}"},
     {"other 2 FRM_UDP_DISCOVERY to port 6667"}},
    {"what is true for a moment is announced or not",
     {"1 broadcast {}", "5000 broadcast {\"a\":1}", "10000 broadcast {}"},
     {"1 broadcast {}", "5100 broadcast {}"},
     {}},
    {"what became true shortly before the end is announced or not",
     {"1 broadcast {}"},
     {"1 broadcast {}", "5000 broadcast {\"a\":1}", "10000 broadcast {\"a\":1}"},
     {}},
    {"what is true for a while is announced",
     {"1 broadcast {}", "5000 broadcast {\"a\":1}", "15000 broadcast {\"a\":1}"},
     {"1 broadcast {}"},
     {"missing 5000 FRM_UDP_DISCOVERY to port 6667"}},
    {"a gateway announces itself",
     {"1 broadcast {}"},
     {},
     {"missing 1 FRM_UDP_DISCOVERY to port 6667"}},
    {"the status has numbers of the machine",
     {"1 operator {\"a\":1} status"},
     {"1 operator {\"a\":2} status"},
     {}},
    {"the operator is answered otherwise",
     {"1 operator {\"result\":0} report a 1=2"},
     {"1 operator {\"error\":\"x\"} report a 1=2"},
     {"other 1 engr_gatewayctl report a 1=2"}},
};

class comparisons : public testing::TestWithParam<comparison_case> {};

TEST_P(comparisons, tell_what_the_agent_decides_from_what_the_machine_does) {
    const replay::recording expected = session_of(GetParam().expected);
    const replay::recording got = session_of(GetParam().got);
    EXPECT_EQ(lines_of(replay::compare(replay::answers_of(expected), replay::answers_of(got),
                                       200'000'000)),
              GetParam().differences);
}

INSTANTIATE_TEST_SUITE_P(all, comparisons, testing::ValuesIn(cases));

TEST(comparison, expects_nothing_after_the_gateway_has_ended) {
    const replay::recording expected = session_of({"1 1 < 7 253 0", "9 1 < 8 253 0"});
    const replay::play_result got{.happened = session_of({"1 1 < 7 253 0", "5 1 > 8 253"}),
                                  .failure = "ended by signal 11"};
    EXPECT_THAT(
        lines_of(replay::compare(replay::answers_of(expected), replay::answers_of(got), 10'000)),
        ElementsAre("ended 5 gateway"));
}

TEST(contrast, shows_the_difference_of_long_lines) {
    const std::string begin(200, 'a');
    const replay::contrast made =
        replay::contrast_of(begin + "x" + begin, begin + "yy" + begin, 60);
    EXPECT_EQ(made.first, "..." + std::string(17, 'a') + "x" + std::string(36, 'a') + "...");
    EXPECT_EQ(made.second, "..." + std::string(17, 'a') + "yy" + std::string(35, 'a') + "...");
    EXPECT_EQ(made.marks, std::string(20, ' ') + "^^");
}

TEST(play, of_a_recorded_session_has_no_difference) {
    const replay::recording recorded = replay::read_recording(ENGR_RECORDED_SESSION);
    const replay::play_result played = replay::play(recorded, {});
    EXPECT_EQ(played.failure, "");
    EXPECT_THAT(lines_of(replay::compare(replay::answers_of(recorded), replay::answers_of(played),
                                         end_of(recorded))),
                IsEmpty());
}

TEST(play, closes_what_the_operator_closed_before_the_next_app_connects) {
    replay::recording recorded =
        session_of({"900 connected 1", "910 closed 1 gateway", "912 connected 2",
                    "914 operator {\"result\":{\"result\":null}} call lpc_close_all_socket",
                    "930 2 > 7 9", "931 2 < 0 9 0"});
    std::get<session::control>(recorded.events[3].what).began_us = 905'000;
    const replay::play_result played = replay::play(recorded, {});
    EXPECT_EQ(played.failure, "");
    EXPECT_THAT(lines_of(replay::compare(replay::answers_of(recorded), replay::answers_of(played),
                                         end_of(recorded))),
                IsEmpty());
}

TEST(play, finds_what_a_scenario_changes) {
    const replay::recording recorded = replay::read_recording(ENGR_RECORDED_SESSION);
    const replay::play_result played =
        replay::play(recorded, {.scenario = R"({"services": {"gw_set_channel": -5}})"});
    const auto found =
        replay::compare(replay::answers_of(recorded), replay::answers_of(played), end_of(recorded));
    ASSERT_FALSE(found.empty()) << "expected a refusal where the record has a success";
    EXPECT_EQ(found.front().got->content.payload, "set channel error");
}

} // namespace
