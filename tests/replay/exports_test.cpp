// Sessions as inputs of a fuzz target, and as files for a gateway. The form of a test is compiled
// and run: see CMakeLists.txt.
#include "exports/exports.h"
#include "lan_client/crypto.h"
#include "session_text.h"
#include "support/input_error.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace {

TEST(fuzz_seed, has_the_frames_of_one_app_under_the_key_of_the_targets_gateway) {
    const replay::recording session =
        session_of({"1 connected 1", "2 connected 2", "3 1 > 1 9", "4 2 > 5 252 {\"channel\":11}",
                    "5 2 < 5 252 0", "6 2 > 6 253"});
    EXPECT_EQ(replay::busiest_app(session), 2U);
    const std::string seed = replay::fuzz_seed_of(session, 2);
    ASSERT_GT(seed.size(), 1U);
    EXPECT_EQ(seed[0], '\0');
    const auto first = lan_client::decode_request(seed.substr(1));
    ASSERT_EQ(first.status, lan_client::decode_status::whole);
    EXPECT_EQ(lan_client::decrypt(lan_client::unactivated_key(), first.decoded.payload),
              "{\"channel\":11}");
    const auto second = lan_client::decode_request(seed.substr(1 + first.consumed_bytes));
    EXPECT_EQ(second.decoded.number, 6U);
    EXPECT_EQ(seed.size(), 1 + first.consumed_bytes + second.consumed_bytes);
    EXPECT_THROW((void)replay::fuzz_seed_of(session, 3), support::input_error);
}

TEST(scenario, has_what_the_operator_set_last) {
    replay::recording session =
        session_of({"1 operator {\"result\":{}} fault gw_get_channel -7",
                    "2 operator {\"result\":{}} fault gw_set_channel -5",
                    "3 operator {\"result\":{}} fault gw_get_channel off",
                    "4 operator {\"error\":\"no\"} fault engr_get_dev_cntl -1",
                    "5 operator {\"result\":{}} callback scene_exec absent"});
    session.begin.scenario = R"({"services":{"get_log_path":-1},"upgrade":{"install_ms":9}})";
    EXPECT_EQ(nlohmann::json::parse(replay::scenario_of(session)), nlohmann::json::parse(R"({
        "services": {"get_log_path": -1, "gw_set_channel": -5},
        "callbacks": {"scene_exec": "absent"}, "upgrade": {"install_ms": 9}})"));
}

TEST(test_form, complains_about_what_the_tests_have_no_words_for) {
    const replay::recording session = session_of({"1 operator {\"result\":0} upgrade start"});
    EXPECT_THROW((void)replay::test_case_of(session, "name"), support::input_error);
    EXPECT_EQ(replay::identifier_of("some/where/2nd-day.jsonl"), "session_2nd_day");
}

} // namespace
