// Sessions are reduced to what leads to their first difference, and to nothing else.
#include "session_text.h"
#include "shrink/shrink.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace {

using testing::ElementsAre;

/** An agent that gives the recorded answers, but forgets the channel once an operator has reported
 * something. */
replay::attempt faulty_agent(replay::recording tried) {
    std::vector<replay::answer> got = replay::answers_of(tried);
    bool has_reported = false;
    for (const session::event &each : tried.events) {
        const auto *frame = std::get_if<session::frame>(&each.what);
        has_reported = has_reported || std::holds_alternative<session::control>(each.what);
        if (has_reported && frame != nullptr && frame->from == session::side::app &&
            frame->content.type == 253) {
            for (replay::answer &one : got) {
                if (one.client == frame->client && one.content.number == frame->content.number) {
                    one.content.payload = "forgotten";
                }
            }
        }
    }
    return {.judged = tried,
            .differences = replay::compare(replay::answers_of(tried), got, replay::end_of(tried))};
}

TEST(shrink, keeps_what_the_difference_needs_and_the_answers_to_it) {
    const replay::recording session = session_of(
        {"10 connected 1", "20 connected 2", "30 connected 3", "1000 3 > 1 9", "1001 3 < 0 9 0",
         "2000 1 > 1 252 {\"channel\":11}", "2001 1 < 1 252 0", "3000 2 > 1 253",
         "3001 2 < 1 253 0 11", "60000 operator {\"result\":0} report a 1=1",
         "60001 1 < 0 8 0 {\"cid\":\"a\"}", "61000 closed 1 app", "62000 2 > 2 253",
         "62001 2 < 2 253 0 11", "63000 2 > 3 253", "63001 2 < 3 253 0 11"});
    const auto found = faulty_agent(session).differences;
    ASSERT_EQ(found.size(), 2U);
    std::size_t plays = 0;
    const replay::shrunk result =
        replay::shrink(session, found.front(), {}, faulty_agent,
                       [&](std::size_t count, std::size_t) { plays = count; });
    EXPECT_THAT(lines_of(result.reduced),
                ElementsAre("client 2 connects from 127.0.0.1:50000",
                            "engr_gatewayctl report a 1=1", "client 2 > 2 FRM_GET_CHANNEL",
                            "client 2 < 2 FRM_GET_CHANNEL ret 0 11"));
    EXPECT_EQ(result.events_after, 3U);
    EXPECT_EQ(result.plays, plays);
    EXPECT_LT(end_of(result.reduced), 2'000'000U) << "expected short pauses";
}

/** An agent that answers at once, and reports nothing to app 3. */
replay::attempt agent_without_report(replay::recording tried) {
    std::vector<replay::answer> got = replay::answers_of(tried);
    for (const session::event &each : tried.events) {
        const auto *frame = std::get_if<session::frame>(&each.what);
        if (frame != nullptr && frame->from == session::side::app) {
            std::erase_if(got, [&](const replay::answer &one) {
                return one.content.number == frame->content.number;
            });
            got.push_back(
                {.at_us = each.at_us, .client = frame->client, .content = frame->content});
            got.back().content.ret = 0;
        }
    }
    std::erase_if(got, [](const replay::answer &one) { return one.client == 3; });
    return {.judged = tried,
            .differences = replay::compare(replay::answers_of(tried), got, replay::end_of(tried)),
            .got = got};
}

TEST(shrink, knows_the_answer_that_came_behind_the_difference) {
    const replay::recording session = session_of(
        {"10 connected 1", "20 connected 3", "500 1 > 1 7", "501 1 < 1 7 0", "1000 1 > 2 7",
         "1010 1 < 0 8 0 {\"cid\":\"a\"}", "1010 3 < 0 8 0 {\"cid\":\"a\"}", "1011 1 < 2 7 0"});
    const auto found = agent_without_report(session).differences;
    ASSERT_FALSE(found.empty());
    const auto reduced = replay::shrink(session, found.front(), {}, agent_without_report,
                                        [](std::size_t, std::size_t) {});
    EXPECT_EQ(reduced.events_after, 3U) << "expected two apps and the request that is reported";
}

/** An agent that does not answer commands to two devices, whatever else there is. */
replay::attempt agent_without_answer(replay::recording tried) {
    std::vector<replay::answer> got = replay::answers_of(tried);
    for (const session::event &each : tried.events) {
        const auto *frame = std::get_if<session::frame>(&each.what);
        if (frame != nullptr && frame->content.payload.find("\"x\":[1") != std::string::npos) {
            std::erase_if(got, [&](const replay::answer &one) {
                return one.content.number == frame->content.number;
            });
        }
    }
    return {.judged = tried,
            .differences = replay::compare(replay::answers_of(tried), got, replay::end_of(tried))};
}

TEST(shrink, leaves_the_request_alone_whose_answer_is_known_from_the_record_only) {
    const replay::recording session =
        session_of({"10 connected 1", "20 1 > 7 7 {\"a\":1,\"x\":[1,2]}", "21 1 < 7 7 0"});
    const auto found = agent_without_answer(session).differences;
    ASSERT_EQ(found.size(), 1U);
    const auto nothing = [](std::size_t, std::size_t) {};
    const auto kept = replay::shrink(session, found.front(), {}, agent_without_answer, nothing);
    EXPECT_EQ(lines_of(kept.reduced)[1], "client 1 > 7 FRM_TP_CMD {\"a\":1,\"x\":[1,2]}");
    const auto reduced = replay::shrink(session, found.front(), {.has_other_build = true},
                                        agent_without_answer, nothing);
    EXPECT_EQ(lines_of(reduced.reduced)[1], "client 1 > 7 FRM_TP_CMD {\"x\":[1]}");
}

} // namespace
