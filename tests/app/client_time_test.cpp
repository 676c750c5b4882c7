// When a client asks, waits, gives up and comes back, to the millisecond.
#include "lan_client/client.h"
#include "lan_client/image_sender.h"
#include "lan_client/log_transfer.h"
#include "support/gateway_frame.h"
#include "support/virtual_loop.h"
#include "virtual_gateway.h"

#include <optional>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;
using fuzz::gateway_frame;

struct client_time : testing::Test {
    static client_options options() {
        client_options wanted;
        wanted.address = "192.0.2.1";
        wanted.keys = {unactivated_key()};
        return wanted;
    }

    void open(client_options wanted = options()) {
        client_events events;
        events.on_report = [this](const report &told) {
            told_story.note("report " + std::to_string(told.type) + " " + told.payload);
        };
        events.on_link = [this](const link_change &change) {
            told_story.note(change.state == link_state::connected
                                ? "connected"
                                : "lost: " +
                                      (error_name(change.why.kind) + (" " + change.why.detail)));
            changes.push_back(change);
        };
        app.emplace(loop, std::move(wanted), std::move(events));
        app->open();
    }

    request of_type(uint32_t type, std::chrono::milliseconds timeout = 0ms) {
        return {.type = type, .timeout = timeout};
    }

    void ask(request wanted) {
        app->ask(std::move(wanted), [this](const answer &got) {
            told_story.note("answer " + std::to_string(got.type) + " " +
                            (got.failure ? error_name(got.failure.kind) : std::to_string(got.ret)) +
                            " " + got.payload);
            answers.push_back(got);
        });
    }

    // Notes each request that arrives.
    void note_requests() {
        gateway.on_request = [this](const frame &seen) {
            told_story.note("request " + std::to_string(seen.type));
        };
    }

    void pass(std::chrono::milliseconds time) {
        loop.run_until([] { return false; }, time);
    }

    event_loop loop;
    virtual_gateway gateway;
    story told_story;
    std::vector<link_change> changes;
    std::vector<answer> answers;
    std::optional<client> app;
};

TEST_F(client_time, a_request_has_5_s_or_its_own_time_and_what_comes_later_is_a_report) {
    gateway.on_request = [this](const frame &seen) {
        const auto after = seen.type == frame_type::get_channel ? 20ms : 6000ms;
        gateway.reply(seen, 0, "{}", after);
    };
    open();
    ask(of_type(frame_type::dev_list));
    ask(of_type(frame_type::dev_line_stat, 5500ms));
    ask(of_type(frame_type::read_app_cfg, 6001ms));
    ask(of_type(frame_type::get_channel));
    pass(10s);
    EXPECT_EQ(told_story.text(), "20 connected\n"
                                 "20 answer 253 0 {}\n"
                                 "5000 answer 241 timed_out \n"
                                 "5500 answer 224 timed_out \n"
                                 "6000 report 241 {}\n"
                                 "6000 report 224 {}\n"
                                 "6000 answer 247 0 {}\n");
    ASSERT_EQ(answers.size(), 4U);
    EXPECT_EQ(answers[0].round_trip, 20ms);
    EXPECT_EQ(answers[0].number, 4U);
    EXPECT_EQ(answers[1].round_trip, 5s);
    EXPECT_EQ(answers[1].number, 1U);
}

TEST_F(client_time, keep_alives_go_out_every_30_s_and_four_without_anything_received_end_it) {
    gateway.on_connected = [this] {
        fuzz::call_later(95s, [this] { gateway.report(frame_type::dp_report, "{}"); });
    };
    gateway.on_request = [this, answered = 0](const frame &seen) mutable {
        told_story.note("request " + std::to_string(seen.type));
        if (answered < 2) {
            ++answered;
            gateway.reply(seen, 0, "");
        }
    };
    open();
    pass(1h);
    EXPECT_EQ(told_story.text(),
              "30000 request 9\n30000 connected\n60000 request 9\n90000 request 9\n"
              "95000 report 8 {}\n120000 request 9\n150000 request 9\n180000 request 9\n"
              "210000 request 9\n240000 lost: connection_lost 4 keep-alives were not answered\n");
    EXPECT_EQ(app->unsent_bytes(), 0U);
}

TEST_F(client_time, who_comes_back_asks_for_nothing_before_the_gateway_has_shown_that_it_serves) {
    gateway.on_request = [this](const frame &seen) {
        told_story.note("request " + std::to_string(seen.type));
        gateway.reply(seen, 0, "", 50ms);
    };
    client_options wanted = options();
    wanted.reconnect = true;
    open(wanted);
    ask(of_type(frame_type::dev_list));
    pass(100ms);
    EXPECT_EQ(told_story.text(), "0 request 9\n50 connected\n50 request 241\n100 answer 241 0 \n");

    app.reset();
    open();
    ask(of_type(frame_type::dev_list));
    pass(100ms);
    EXPECT_TRUE(told_story.text().ends_with("100 request 241\n150 connected\n150 answer 241 0 \n"))
        << "expected one that does not come back to ask at once:\n"
        << told_story.text();
}

TEST_F(client_time, comes_back_in_pauses_that_double_from_half_a_second_to_30_s) {
    std::vector<std::chrono::steady_clock::time_point> connected;
    gateway.on_request = [this](const frame &seen) { gateway.reply(seen, 0, ""); };
    client_options wanted = options();
    wanted.reconnect = true;
    open(wanted);
    pass(1s);
    ASSERT_EQ(changes.size(), 1U);
    const auto lose = [&] {
        changes.clear();
        gateway.full = true;
        gateway.hang_up();
        loop.run_until([&] { return !changes.empty(); }, 0ms);
        EXPECT_EQ(changes.back().why.kind, error_kind::connection_lost);
    };
    lose();
    for (const auto expected : {500ms, 1000ms, 2000ms, 4000ms, 8000ms, 16000ms, 30000ms, 30000ms}) {
        const auto pause = changes.back().pause;
        EXPECT_GE(pause, expected * 3 / 4);
        EXPECT_LE(pause, expected * 5 / 4);
        const int before = gateway.connections;
        pass(pause - 1ms);
        EXPECT_EQ(gateway.connections, before);
        pass(1ms);
        EXPECT_EQ(gateway.connections, before + 1) << "expected an attempt after the pause";
        EXPECT_EQ(changes.back().why.kind, error_kind::table_full);
    }
    gateway.full = false;
    pass(1min);
    EXPECT_EQ(changes.back().state, link_state::connected);
    lose();
    EXPECT_LE(changes.back().pause, 625ms) << "expected the pauses to begin anew";

    app->close();
    const int before = gateway.connections;
    pass(1h);
    EXPECT_EQ(gateway.connections, before) << "expected a client that was closed to stay away";
}

TEST_F(client_time, a_connection_that_never_worked_is_not_tried_again) {
    gateway.full = true;
    client_options wanted = options();
    wanted.reconnect = true;
    open(wanted);
    pass(1h);
    EXPECT_EQ(gateway.connections, 1);
    ASSERT_EQ(changes.size(), 1U);
    EXPECT_EQ(changes.front().pause, 0ms);
    app->open();
    pass(1ms);
    EXPECT_EQ(gateway.connections, 2) << "expected it to be tried when that is asked for";
}

TEST_F(client_time, a_request_that_must_not_follow_waits_until_the_one_before_is_given_up) {
    note_requests();
    open();
    // The next one would start at byte 500 of the 512 that a gateway reads.
    ask({.type = frame_type::set_channel, .payload = std::string(500 - 24, 'x')});
    ask(of_type(frame_type::dev_list, 7s));
    pass(10s);
    EXPECT_EQ(told_story.text(), "0 request 252\n5000 answer 252 timed_out \n5000 request 241\n"
                                 "7000 answer 241 timed_out \n");
}

TEST_F(client_time, each_segment_of_a_log_and_each_piece_that_leaves_renews_the_time) {
    gateway.on_request = [this](const frame &seen) {
        if (seen.type != frame_type::get_log) {
            return;
        }
        for (uint32_t number = 1; number <= 3; ++number) {
            fuzz::call_later(4s * number, [this, seen, number] {
                gateway.send(gateway_frame(seen.number, seen.type, {0, 4, number}, "log "));
            });
        }
    };
    open();
    ask(of_type(frame_type::get_log));
    pass(20s);
    EXPECT_EQ(told_story.text(), "4000 connected\n17000 answer 254 timed_out log log log \n")
        << "expected what has come of it to be told";

    fuzz::the_far_side().piece_time = 4s;
    std::string steps;
    app->ask({.type = frame_type::download_app_cfg,
              .payload = std::string(20'000, 'x'),
              .on_sent =
                  [&](std::size_t sent, std::size_t whole) {
                      steps += std::to_string(sent) + "/" + std::to_string(whole) + " ";
                  }},
             [this](const answer &got) { told_story.note(error_name(got.failure.kind)); });
    pass(20s);
    EXPECT_EQ(steps, "16384/20024 20024/20024 ");
    EXPECT_TRUE(told_story.text().ends_with("\n33000 timed_out\n")) << told_story.text();
}

TEST_F(client_time, a_log_that_comes_too_slowly_is_given_up) {
    gateway.on_request = [this](const frame &seen) {
        for (uint32_t number = 1; number <= 20; ++number) {
            fuzz::call_later(3s * number, [this, seen, number] {
                if (answers.empty()) {
                    gateway.send(gateway_frame(seen.number, seen.type, {0, 100, number}, "l"));
                }
            });
        }
    };
    open();
    log_transfer log(*app, 5s, [this](uint64_t done, uint64_t total) {
        told_story.note(std::to_string(done) + " of " + std::to_string(total));
    });
    EXPECT_EQ(log.last().number, 0);
    EXPECT_EQ(log.last().count, 0);
    ask(log.wanted());
    pass(1min);
    // 2 s for each segment, and the 5 s before the first.
    EXPECT_EQ(told_story.text(), "3000 connected\n3000 1024 of 102400\n6000 2048 of 102400\n"
                                 "9000 3072 of 102400\n12000 4096 of 102400\n"
                                 "15000 5120 of 102400\n18000 answer 254 cancelled llllll\n");
    EXPECT_TRUE(log.is_endless());
    EXPECT_EQ(log.last().number, 6);
    EXPECT_EQ(log.last().count, 100);
}

TEST_F(client_time, a_gateway_that_asks_for_the_next_piece_before_one_has_left_does_not_have_it) {
    fuzz::the_far_side().piece_time = 1s;
    open();
    std::string steps;
    app->tell(
        {.type = frame_type::download_firmware,
         .payload = std::string(40'000, 'x'),
         .on_sent = [&](std::size_t sent, std::size_t) { steps += std::to_string(sent) + " "; }});
    pass(1500ms);
    gateway.report(frame_type::download_firmware, "{}");
    pass(10s);
    EXPECT_EQ(steps, "16384 32768 40024 ");
}

TEST_F(client_time, pieces_of_an_image_leave_one_after_the_other) {
    fuzz::the_far_side().piece_time = 1s;
    std::optional<image_sender> sender;
    client_events events;
    events.on_report = [&sender](const report &told) { sender->take(told); };
    gateway.on_request = [this](const frame &seen) {
        told_story.note("piece of " + std::to_string(seen.payload.size() - 4) + " at " +
                        std::to_string(static_cast<unsigned char>(seen.payload[2])));
    };
    app.emplace(loop, options(), events);
    std::size_t read = 0;
    sender.emplace(
        *app, 40'000, std::vector<std::string>{"gw"}, 5s,
        [&read](std::string &bytes, uint64_t, std::size_t count) {
            read += count;
            bytes.append(count, 'i');
            return true;
        },
        [] {});
    app->open();
    pass(1ms);
    for (const char *place :
         {R"("offset":0,"downloadSize":30000})", R"("offset":25600,"downloadSize":10000})"}) {
        gateway.report(frame_type::download_firmware,
                       std::string(R"({"firmwareType":0,"cid":"gw",)") + place);
    }
    pass(1s);
    EXPECT_EQ(read, 30'000U) << "expected nothing to be read ahead";
    EXPECT_EQ(sender->taken_bytes(), 0U);
    pass(1500ms);
    EXPECT_EQ(read, 40'000U);
    EXPECT_EQ(sender->taken_bytes(), 25'600U);
    EXPECT_EQ(std::chrono::steady_clock::now() - sender->last_progress(), 500ms);
    pass(1s);
    EXPECT_EQ(told_story.text(), "2001 piece of 30000 at 0\n3001 piece of 10000 at 100\n");
}

TEST_F(client_time, a_callback_may_close_the_client) {
    const struct {
        const char *what;
        std::function<void(request &)> change;
        const char *expected;
    } cases[] = {
        {"when a segment comes",
         [this](request &wanted) { wanted.on_segment = [this](auto) { app->close(); }; },
         "connected\nanswer 254 cancelled log \n"},
        {"when bytes have left",
         [this](request &wanted) { wanted.on_sent = [this](auto, auto) { app->close(); }; },
         "answer 254 cancelled \n"},
    };
    for (const auto &one : cases) {
        told_story = {};
        told_story.has_times = false;
        gateway.on_request = [this](const frame &seen) {
            gateway.send(gateway_frame(seen.number, seen.type, {0, 3, 1}, "log ") +
                         gateway_frame(seen.number, seen.type, {0, 3, 2}, "log ") +
                         gateway_frame(0, frame_type::dp_report, {0}, ""));
        };
        open();
        request wanted = of_type(frame_type::get_log);
        one.change(wanted);
        ask(std::move(wanted));
        pass(1min);
        EXPECT_EQ(told_story.text(), one.expected) << one.what;
    }
}

TEST_F(client_time, observers_see_each_frame_and_the_bytes_of_each_connection) {
    std::string frames;
    std::string wire;
    client_events events;
    events.on_traffic = [&](const traffic &seen) {
        const char *states[] = {"plain", "decrypted", "unreadable"};
        frames += std::string(seen.sent ? "> " : "< ") + (seen.discovery ? "discovery " : "") +
                  std::to_string(seen.number) + " " + std::to_string(seen.type) + " " +
                  (seen.ret ? std::to_string(*seen.ret) : "-") + " " +
                  (seen.segment ? std::to_string(seen.segment->number) : "-") + " " +
                  (seen.crc_matches ? "whole " : "damaged ") +
                  states[static_cast<int>(seen.state)] + " " + std::string(seen.text) + " " +
                  std::to_string(seen.wire_payload.size()) + " " + std::string(seen.peer) + "\n";
    };
    events.on_wire = [&](const wire_notice &seen) {
        const char *names[] = {"connected", "sent", "received", "closed"};
        wire += std::string(names[static_cast<int>(seen.event)]) + " " +
                std::to_string(seen.bytes.size()) + (seen.by_gateway ? " by the gateway" : "") +
                (seen.client == nullptr ? " of none" : "") + "\n";
    };
    const aes_key other = *aes_key::from_text("local-key-of-gw1");
    gateway.on_request = [&](const frame &seen) {
        std::string damaged = gateway_frame(seen.number, seen.type, {1}, "");
        damaged[19] ^= 2;
        gateway.send(gateway_frame(0, frame_type::dp_report, {0}, encrypt(other, "{}")));
        gateway.send(seen.type == frame_type::dp_query
                         ? damaged
                         : gateway_frame(seen.number, seen.type, {0, 1, 1}, "log"));
    };
    app.emplace(loop, options(), events);
    app->open();
    ask({.type = frame_type::dp_query, .payload = "{}", .coding = payload_coding::encrypted});
    pass(1s);
    ask(of_type(frame_type::get_log));
    pass(1s);
    EXPECT_EQ(frames, "> 1 18 - - whole decrypted {} 16 192.0.2.1:6668\n"
                      "< 0 8 0 - whole unreadable  16 192.0.2.1:6668\n"
                      "< 1 18 3 - damaged plain  0 192.0.2.1:6668\n"
                      "> 2 254 - - whole plain  0 192.0.2.1:6668\n"
                      "< 0 8 0 - whole unreadable  16 192.0.2.1:6668\n"
                      "< 2 254 0 1 whole plain log 3 192.0.2.1:6668\n");
    EXPECT_EQ(wire, "connected 0\nsent 40\nreceived 44\nreceived 28\n"
                    "sent 24\nreceived 44\nreceived 39\n");
    wire.clear();
    gateway.hang_up();
    pass(1s);
    EXPECT_EQ(wire, "closed 0 by the gateway\n");
    wire.clear();
    app->open();
    pass(1s);
    app->close();
    app->open();
    pass(1s);
    app.reset();
    EXPECT_EQ(wire, "connected 0\nclosed 0\nconnected 0\nclosed 0\n");

    app.emplace(loop, options(), events);
    app->open();
    pass(1s);
    wire.clear();
    fuzz::the_far_side().piece_time = 1h;
    for (int told = 0; told < 5; ++told) {
        app->tell({.type = frame_type::download_firmware, .payload = std::string(2'000'000, 'x')});
    }
    pass(0ms);
    EXPECT_TRUE(wire.ends_with("sent 2000024\nclosed 0\n"))
        << "expected the app to end a connection that takes nothing:\n"
        << wire;
}

TEST_F(client_time, a_client_that_is_destroyed_tells_nothing_more) {
    note_requests();
    open();
    ask(of_type(frame_type::dev_list));
    pass(1s);
    app.reset();
    pass(1h);
    EXPECT_EQ(told_story.text(), "0 request 241\n");
}

} // namespace
