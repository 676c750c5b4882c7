// The client against a scripted gateway.
#include "fake_gateway.h"
#include "lan_client/client.h"
#include "send_window.h"

#include <algorithm>
#include <optional>

#include <gtest/gtest.h>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;

// A bound against hanging; nothing waits for it.
constexpr auto limit = 60s;

const aes_key local_key = *aes_key::from_text("local-key-of-gw1");

struct client_test : testing::Test {
    client_options options() {
        client_options wanted;
        wanted.address = "127.0.0.1";
        wanted.port = gateway.port();
        wanted.keys = {unactivated_key()};
        wanted.request_timeout = limit;
        wanted.pause = reconnect_pause(1ms, 4ms);
        return wanted;
    }

    void start(client_options wanted) {
        client_events events;
        events.on_report = [this](const report &told) { reports.push_back(told); };
        events.on_link = [this](const link_change &change) { links.push_back(change); };
        events.on_traffic = [this](const traffic &seen) {
            sent += seen.sent ? 1 : 0;
            unanswered = seen.sent ? unanswered + 1 : 0;
        };
        app.emplace(loop, std::move(wanted), std::move(events));
        app->open();
    }

    void ask(std::uint32_t type, std::string payload = {},
             payload_coding coding = payload_coding::plain,
             std::chrono::milliseconds timeout = 0ms) {
        app->ask(
            {.type = type, .payload = std::move(payload), .coding = coding, .timeout = timeout},
            [this](const answer &outcome) { answers.push_back(outcome); });
    }

    void wait_for(const std::function<bool()> &event) {
        ASSERT_TRUE(loop.run_until(event, limit)) << "the awaited event did not come";
    }
    void wait_for_answers(std::size_t count) {
        wait_for([this, count] { return answers.size() == count; });
    }
    error_kind only_failure() {
        wait_for_answers(1);
        return answers.empty() ? error_kind::none : answers.front().failure.kind;
    }

    event_loop loop;
    fake_gateway gateway{loop};
    std::optional<client> app;
    std::vector<answer> answers;
    std::vector<report> reports;
    std::vector<link_change> links;
    int sent = 0;
    unsigned unanswered = 0; // sent since the last frame came
};

TEST_F(client_test, answers_reach_their_requests_in_any_order_and_reports_the_callback) {
    std::vector<seen_request> held;
    gateway.on_request = [&](const seen_request &request) {
        held.push_back(request);
        if (held.size() == 3) {
            gateway.send(gateway_frame(0, 8, {0}, encrypt(unactivated_key(), R"({"dps":{}})")));
            gateway.send(gateway_frame(held[0].number, 99, {0}, "")); // right number, other type
            gateway.reply(held[2], 0, R"({"third":1})");
            gateway.reply(held[0], 1, "refused");
            gateway.reply(held[1], 0, "");
        }
    };
    start(options());
    ask(241);
    ask(10, R"({"cid":"a"})", payload_coding::encrypted);
    ask(224);
    wait_for_answers(3);
    EXPECT_EQ(decrypt(unactivated_key(), held[1].payload), R"({"cid":"a"})");
    EXPECT_EQ(answers[0].type, 224u);
    EXPECT_EQ(answers[0].payload, R"({"third":1})");
    EXPECT_EQ(answers[1].type, 241u);
    EXPECT_EQ(answers[1].ret, 1u);
    EXPECT_EQ(answers[1].payload, "refused");
    EXPECT_EQ(answers[2].type, 10u);
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].payload, R"({"dps":{}})");
    EXPECT_EQ(reports[1].type, 99u);
}

TEST_F(client_test, a_silent_gateway_costs_one_request_its_time_and_no_other) {
    gateway.on_request = [&](const seen_request &request) {
        if (request.type == 241) {
            gateway.reply(request, 0, R"({"products":[]})");
        }
    };
    start(options());
    ask(251, {}, payload_coding::plain, 1ms);
    ask(241);
    wait_for_answers(2);
    std::ranges::sort(answers, {}, &answer::type);
    EXPECT_EQ(answers[0].payload, R"({"products":[]})");
    EXPECT_EQ(answers[1].failure.kind, error_kind::timed_out);
}

TEST_F(client_test, an_answer_of_megabytes_arrives_whole) {
    const std::string text = "{\"log\":\"" + std::string(3'000'000, 'x') + "\"}";
    gateway.on_request = [&](const seen_request &request) { gateway.reply(request, 0, text); };
    start(options());
    ask(247);
    wait_for_answers(1);
    EXPECT_EQ(answers.front().payload, text);
}

TEST_F(client_test, undecryptable_answer_is_reported_as_wrong_key) {
    gateway.on_request = [&](const seen_request &request) {
        gateway.reply(request, 1, "parse data error", local_key);
    };
    start(options());
    ask(10, "{}", payload_coding::encrypted);
    EXPECT_EQ(only_failure(), error_kind::wrong_key);
}

TEST_F(client_test, goes_over_to_the_key_that_the_gateway_uses_and_repeats_the_request) {
    int received = 0;
    gateway.on_request = [&](const seen_request &request) {
        ++received;
        const auto text = decrypt_text(local_key, request.payload);
        gateway.reply(request, text ? 0 : 1, text ? *text : "parse data error", local_key);
    };
    client_options wanted = options();
    wanted.keys = {unactivated_key(), local_key};
    start(wanted);
    ask(10, R"({"cid":"a"})", payload_coding::encrypted);
    wait_for_answers(1);
    EXPECT_EQ(answers.front().payload, R"({"cid":"a"})");
    EXPECT_EQ(received, 2);
}

TEST_F(client_test, repeats_only_a_request_that_was_refused_for_its_key_and_only_once) {
    const struct {
        const char *what;
        payload_coding coding;
        std::uint32_t ret;
        const char *text;
        int times;
    } cases[] = {
        {"refused for its key, now for the other one", payload_coding::encrypted, 1,
         "parse data error", 2},
        {"decrypted to garbage by its key", payload_coding::encrypted, 1, "data format error", 2},
        {"refused for something else", payload_coding::encrypted, 1, "no", 1},
        {"answered", payload_coding::encrypted, 0, "parse data error", 1},
        {"sent in the clear", payload_coding::plain, 1, "parse data error", 1},
    };
    for (const auto &one : cases) {
        answers.clear();
        int received = 0;
        gateway.on_request = [&](const seen_request &request) {
            // Never the key that the client has just changed over to.
            gateway.reply(request, one.ret, one.text,
                          ++received % 2 == 1 ? local_key : unactivated_key());
        };
        client_options wanted = options();
        wanted.keys = {unactivated_key(), local_key};
        start(wanted);
        ask(10, "{}", one.coding);
        wait_for_answers(1);
        EXPECT_EQ(answers.front().ret, one.ret) << one.what;
        EXPECT_EQ(answers.front().payload, one.text) << one.what;
        EXPECT_EQ(received, one.times) << one.what;
    }
}

TEST_F(client_test, a_request_that_is_repeated_holds_up_the_next_one_again) {
    std::vector<seen_request> held;
    gateway.on_request = [&](const seen_request &request) {
        held.push_back(request);
        if (held.size() == 1) {
            gateway.reply(request, 1, "parse data error", local_key);
        } else if (request.type == 241) {
            gateway.reply(request, 0, "", local_key);
        }
    };
    client_options wanted = options();
    wanted.keys = {unactivated_key(), local_key};
    start(wanted);
    ask(frame_type::dp_query, std::string(470, 'x'), payload_coding::encrypted);
    wait_for([&] { return held.size() == 2; });
    ask(241); // would start at byte 504 of the 512 that a gateway reads
    EXPECT_EQ(sent, 2) << "it must not go out yet";
    gateway.reply(held[1], 0, "", local_key);
    wait_for_answers(2);
}

TEST_F(client_test, pads_only_a_text_that_may_stay_without_an_answer) {
    const struct {
        std::uint32_t type;
        const char *end;
        bool padded;
    } cases[] = {
        {frame_type::grp_oper, "}", true},  // answered when it fails
        {frame_type::tp_cmd, "}", true},    // answered when it succeeds
        {frame_type::dp_query, "}", false}, // answered always
        {frame_type::tp_cmd, "]", false},   // no object
        {9999, "}", false},                 // not known
    };
    for (const auto &one : cases) {
        std::size_t got = 0;
        gateway.on_request = [&](const seen_request &request) {
            got = request.payload.size();
            gateway.reply(request, 0, "");
        };
        start(options());
        // With head, padding and tail the next frame would start at byte 504 of the 512 read.
        ask(one.type, "{" + std::string(468, ' ') + one.end, payload_coding::encrypted);
        wait_for_answers(1);
        answers.clear();
        EXPECT_EQ(got, one.padded ? 496U : 480U) << one.type << " " << one.end;
    }
}

TEST_F(client_test, names_the_ways_in_which_a_connection_fails) {
    gateway.full = true;
    start(options());
    ask(241);
    EXPECT_EQ(only_failure(), error_kind::table_full);

    answers.clear();
    client_options nobody = options();
    nobody.port = fake_gateway(loop).port(); // closed again at once
    start(nobody);
    ask(241);
    EXPECT_EQ(only_failure(), error_kind::refused);
    answers.clear();
    ask(241);
    EXPECT_EQ(only_failure(), error_kind::refused)
        << "expected a later request to be told the same";

    answers.clear();
    client_options nowhere = options();
    nowhere.interface_name = "no-such-if";
    start(nowhere);
    ask(241);
    EXPECT_EQ(only_failure(), error_kind::no_interface);
}

TEST_F(client_test, damaged_answer_is_not_taken_for_an_answer_nor_a_report_for_a_report) {
    gateway.on_request = [&](const seen_request &request) {
        const std::string text = encrypt(unactivated_key(), R"({"dps":{}})");
        for (const std::uint32_t number : {0U, request.number}) {
            std::string bytes = gateway_frame(number, request.type, {0}, text);
            bytes[19] ^= 1; // ret
            gateway.send(bytes);
        }
    };
    start(options());
    ask(241);
    EXPECT_EQ(only_failure(), error_kind::damaged);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_FALSE(reports.front().readable);
    EXPECT_TRUE(reports.front().damaged);
    EXPECT_EQ(reports.front().payload, "");
}

TEST_F(client_test, connects_again_after_a_loss_and_goes_on) {
    gateway.on_request = [&](const seen_request &request) {
        if (request.type == 9) {
            gateway.send(gateway_frame(0, 9, {0}, ""));
        } else if (gateway.connections < 4) {
            gateway.full = true; // and two attempts find the table full
            gateway.hang_up();
        } else {
            gateway.reply(request, 0, R"({"back":1})");
        }
    };
    client_options wanted = options();
    wanted.reconnect = true;
    start(wanted);
    wait_for([&] { return !links.empty(); });
    ask(241);
    EXPECT_EQ(only_failure(), error_kind::connection_lost);
    wait_for([&] { return gateway.connections == 3; });
    gateway.full = false;
    ask(241);
    wait_for_answers(2);
    EXPECT_EQ(answers[1].payload, R"({"back":1})") << "a request made meanwhile waits";
    std::string story;
    for (const link_change &change : links) {
        story += change.state == link_state::connected ? "connected " : error_name(change.why.kind);
        story += change.state == link_state::connected ? "" : " ";
    }
    EXPECT_EQ(story, "connected connection_lost table_full table_full connected ");
}

TEST_F(client_test,
       a_gateway_that_is_busy_for_a_while_keeps_its_connection_and_a_dead_one_does_not) {
    // A piece of an image is written for up to 60 s, and another app's half frame may follow.
    const client_options usual;
    EXPECT_GE(usual.keep_alive_interval * usual.max_unanswered_keep_alives, 60s + 30s);

    int keep_alives = 0;
    gateway.on_request = [&](const seen_request &) {
        if (++keep_alives == 3) {
            gateway.send(gateway_frame(0, frame_type::keepalive, {0}, ""));
        }
    };
    client_options wanted = options();
    wanted.keep_alive_interval = 1ms;
    start(wanted);
    wait_for([&] { return !links.empty() && links.back().state == link_state::lost; });
    ASSERT_EQ(links.size(), 2u) << "three keep-alives without an answer are no loss";
    EXPECT_EQ(unanswered, usual.max_unanswered_keep_alives);
    EXPECT_GT(sent, 3 + 3) << "expected the answer to count";
    EXPECT_EQ(links.back().why.detail, "4 keep-alives were not answered");
}

TEST_F(client_test, a_log_in_segments_is_put_together_and_a_gap_is_noticed) {
    bool gap = false;
    gateway.on_request = [&](const seen_request &request) {
        gateway.send(gateway_frame(request.number, 254, {0, 3, 1}, std::string(1024, 'a')));
        gateway.send(gateway_frame(request.number, 254, {0, 3, gap ? 3u : 2u}, "bb"));
        gateway.send(gateway_frame(request.number, 254, {0, 3, 3}, ""));
    };
    start(options());
    ask(254);
    wait_for_answers(1);
    EXPECT_EQ(answers[0].payload, std::string(1024, 'a') + "bb");
    gap = true;
    ask(254);
    wait_for_answers(2);
    EXPECT_EQ(answers[1].failure.detail, "segment 2 is missing");
}

TEST_F(client_test, a_long_frame_tells_how_far_it_has_been_sent) {
    gateway.on_request = [&](const seen_request &request) { gateway.reply(request, 0, ""); };
    start(options());
    std::size_t last = 0;
    bool grew = true;
    std::size_t longest_step = 0;
    std::size_t whole = 0;
    app->ask({.type = frame_type::download_app_cfg,
              .payload = std::string(1'000'000, 'x'),
              .on_sent =
                  [&](std::size_t sent_bytes, std::size_t frame_bytes) {
                      grew = grew && sent_bytes > last;
                      longest_step = std::max(longest_step, sent_bytes - last);
                      last = sent_bytes;
                      whole = frame_bytes;
                  }},
             [this](const answer &outcome) { answers.push_back(outcome); });
    ask(9);
    wait_for_answers(2);
    EXPECT_TRUE(grew) << "each time more bytes have been sent";
    EXPECT_LE(longest_step, 16u * 1024) << "expected progress to show in small steps";
    EXPECT_EQ(last, 1'000'024u) << "neither less than the frame nor the bytes of the next one";
    EXPECT_EQ(whole, 1'000'024u);
}

TEST_F(client_test, frame_that_the_gateway_could_lose_waits_for_the_one_before) {
    std::optional<seen_request> held;
    gateway.on_request = [&](const seen_request &request) {
        if (request.type == 252) {
            held = request;
        } else {
            gateway.reply(request, 0, "");
        }
    };
    start(options());
    ask(252, std::string(500 - 24, 'x')); // the next frame would start at 500 of 512 bytes read
    wait_for([&] { return held.has_value(); });
    ask(241);
    EXPECT_EQ(sent, 1) << "it must not go out yet";
    gateway.reply(*held, 0, "");
    wait_for_answers(2);
    EXPECT_EQ(sent, 2);

    for (const auto &[distance, allowed] : std::initializer_list<std::pair<unsigned, bool>>{
             {24, true}, {488, true}, {489, false}, {511, false}, {512, true}, {600, true}}) {
        EXPECT_EQ(may_follow(1000, 1000 + distance), allowed) << distance;
    }
}

TEST_F(client_test, silent_operation_of_any_length_holds_up_nothing) {
    std::vector<std::string> silent;
    gateway.on_request = [&](const seen_request &request) {
        if (request.type == 241) {
            gateway.reply(request, 0, "");
        } else {
            silent.push_back(decrypt(unactivated_key(), request.payload).value_or(""));
        }
    };
    start(options());
    constexpr std::size_t most_bytes = 560;
    std::size_t asked = 0;
    for (std::size_t bytes = 2; bytes < most_bytes; bytes += 6) {
        const std::string text = "{" + std::string(bytes - 2, ' ') + "}";
        ask(208, text, payload_coding::encrypted);
        ask(241);
        wait_for_answers(++asked);
        ASSERT_EQ(silent.size(), asked);
        EXPECT_EQ(silent.back().substr(0, bytes), text);
        EXPECT_EQ(silent.back().find_first_not_of(' ', bytes), std::string::npos);
    }
}

TEST_F(client_test, a_piece_is_done_with_when_the_next_is_asked_for_or_the_connection_ends) {
    int pieces = 0;
    gateway.on_request = [&](const seen_request &request) {
        if (request.type == 9) {
            gateway.send(gateway_frame(0, 9, {0}, ""));
        } else if (request.type == 241) {
            gateway.reply(request, 0, "");
        } else if (++pieces == 2) {
            gateway.hang_up();
        }
    };
    client_options wanted = options();
    wanted.reconnect = true;
    start(wanted);
    wait_for([&] { return links.size() == 1; });
    app->tell({.type = frame_type::download_firmware, .payload = std::string(500 - 24, 'x')});
    wait_for([&] { return pieces == 1; });
    const int sent_before = sent;
    ask(241);
    EXPECT_EQ(sent, sent_before) << "it must not go out yet";
    gateway.send(gateway_frame(0, 231, {0}, ""));
    wait_for_answers(1);

    app->tell({.type = frame_type::download_firmware, .payload = std::string(500 - 24, 'x')});
    app->tell({.type = frame_type::download_firmware, .payload = "behind it"});
    wait_for([&] { return links.size() == 3; });
    ask(241);
    wait_for_answers(2);
    EXPECT_EQ(pieces, 2) << "what was told belongs to the connection that is gone";
}

TEST_F(client_test, may_be_destroyed_by_the_answer_to_its_own_request) {
    gateway.on_request = [&](const seen_request &request) {
        gateway.send(gateway_frame(request.number, request.type, {0}, "") +
                     gateway_frame(0, 227, {0}, ""));
    };
    start(options());
    bool answered = false;
    app->ask({.type = frame_type::dev_list}, [&](const answer &) {
        app.reset();
        answered = true;
    });
    wait_for([&] { return answered; });
    EXPECT_TRUE(reports.empty());
}

TEST(reconnect_pause, doubles_up_to_its_bound_within_a_quarter_and_starts_anew) {
    reconnect_pause pause(100ms, 350ms);
    EXPECT_EQ(pause.next(0.5), 100ms);
    EXPECT_EQ(pause.next(0.0), 150ms);
    EXPECT_EQ(pause.next(0.5), 350ms);
    EXPECT_LE(pause.next(0.999), 438ms);
    pause.reset();
    EXPECT_EQ(pause.next(0.5), 100ms);
}

} // namespace
