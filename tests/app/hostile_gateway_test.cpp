// An app whose gateway lies, floods it, or does not listen: what that may cost is bounded.
#include "base/json_text.h"
#include "fake_gateway.h"
#include "gateway/devices.h"
#include "gateway/request.h"
#include "lan_client/client.h"
#include "lan_client/limits.h"
#include "lan_client/stream_cutter.h"
#include "terminal/screen.h"

#include <optional>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;

// A bound against hanging; nothing waits for it.
constexpr auto limit = 60s;

const aes_key local_key = *aes_key::from_text("local-key-of-gw1");

std::string head_claiming(std::size_t payload_bytes) {
    return gateway_frame(0, frame_type::dp_report, {0}, std::string(payload_bytes, 'x'))
        .substr(0, 16);
}

struct hostile_gateway : testing::Test {
    client_options options() {
        client_options wanted;
        wanted.address = "127.0.0.1";
        wanted.port = gateway.port();
        wanted.keys = {unactivated_key()};
        wanted.request_timeout = limit;
        return wanted;
    }

    void start(client_options wanted) {
        client_events events;
        events.on_report = [this](const report &one) { reports.push_back(one); };
        events.on_link = [this](const link_change &change) { lost = change.why; };
        app.emplace(loop, std::move(wanted), std::move(events));
        app->open();
    }

    void ask(request wanted) {
        app->ask(std::move(wanted), [this](const answer &got) { answers.push_back(got); });
    }

    void wait_for(const std::function<bool()> &event) {
        ASSERT_TRUE(loop.run_until(event, limit)) << "the awaited event did not come";
    }

    event_loop loop;
    fake_gateway gateway{loop};
    std::optional<client> app;
    std::vector<answer> answers;
    std::vector<report> reports;
    error lost;
};

TEST(hostile_stream, of_heads_within_heads_takes_time_in_proportion_to_its_bytes) {
    const std::string head = head_claiming(max_received_frame_bytes - 100);
    std::string heads;
    while (heads.size() < 64 * 1024) {
        heads += head;
    }
    stream_cutter cutter;
    const auto end = std::chrono::steady_clock::now() + limit;
    for (std::size_t fed = 0; fed < 3 * max_received_frame_bytes; fed += heads.size()) {
        cutter.feed(heads);
        EXPECT_FALSE(cutter.next()) << "none of them has a tail";
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "after " << fed << " bytes";
    }
}

TEST_F(hostile_gateway, that_releases_many_frames_at_once_does_not_hold_up_the_loop) {
    constexpr std::size_t count = 10'000;
    std::string flood;
    for (std::size_t sent = 0; sent < count; ++sent) {
        flood += gateway_frame(0, frame_type::dp_report, {0}, "");
    }
    gateway.on_request = [&](const seen_request &request) {
        // A head holds all of them back until its tail turns out to be missing.
        gateway.send(head_claiming(flood.size() - 20) + flood +
                     gateway_frame(request.number, request.type, {0}, ""));
    };
    start(options());
    ask({.type = frame_type::dev_list});
    std::size_t seen = 0;
    std::size_t most = 0;
    wait_for([&] {
        most = std::max(most, reports.size() - seen);
        seen = reports.size();
        return answers.size() == 1;
    });
    EXPECT_EQ(reports.size(), count);
    EXPECT_LE(most, max_frames_at_once) << "so many between two looks at timers and signals";
}

TEST_F(hostile_gateway, that_does_not_read_makes_requests_fail_instead_of_pile_up) {
    gateway.deaf = true;
    client_options wanted = options();
    wanted.keep_alive_interval = limit;
    start(wanted);
    const std::string payload(2'000'000, 'x');
    constexpr std::size_t count = 20;
    for (std::size_t asked = 0; asked < count; ++asked) {
        ask({.type = frame_type::download_app_cfg, .payload = payload});
    }
    wait_for([&] { return answers.size() > count / 2; });
    EXPECT_EQ(answers.front().failure.kind, error_kind::queue_full);
    EXPECT_LE(app->unsent_bytes(), max_request_bytes_under_way);
    EXPECT_GT(app->unsent_bytes(), payload.size()) << "what was taken on still waits";

    for (std::size_t sent = 0; sent < count; ++sent) {
        app->tell({.type = frame_type::download_firmware, .payload = payload});
    }
    wait_for([&] { return lost.kind == error_kind::queue_full; });
    EXPECT_EQ(app->unsent_bytes(), 0u) << "nothing of a connection that has ended is kept";
}

TEST_F(hostile_gateway, that_reads_lets_the_app_see_when_all_has_left) {
    start(options());
    app->tell({.type = frame_type::download_firmware, .payload = std::string(2'000'000, 'x')});
    EXPECT_EQ(app->unsent_bytes(), 2'000'000 + request_overhead_bytes);
    wait_for([&] { return app->unsent_bytes() == 0; });
}

TEST_F(hostile_gateway, that_promises_endless_segments_is_not_listened_to) {
    gateway.on_request = [&](const seen_request &request) {
        gateway.send(gateway_frame(request.number, request.type, {0, INT32_MAX, 1}, ""));
    };
    start(options());
    ask({.type = frame_type::get_log});
    wait_for([&] { return answers.size() == 1; });
    EXPECT_EQ(answers.front().failure.kind, error_kind::answer_too_long);
}

TEST_F(hostile_gateway, that_answers_under_the_built_in_key_learns_and_tells_nothing) {
    std::size_t readable = 0;
    gateway.on_request = [&](const seen_request &request) {
        readable += decrypt_text(unactivated_key(), request.payload) ? 1 : 0;
        gateway.send(gateway_frame(0, frame_type::dp_report, {0},
                                   encrypt(unactivated_key(), R"({"dps":{}})")));
        gateway.reply(request, 1, "parse data error");
    };
    client_options wanted = options();
    wanted.keys = {local_key};
    start(wanted);
    for (std::size_t asked = 1; asked <= 2; ++asked) {
        ask({.type = frame_type::token_bind,
             .payload = R"({"token":"t"})",
             .coding = payload_coding::encrypted});
        wait_for([&] { return answers.size() == asked; });
        EXPECT_EQ(answers.back().failure.kind, error_kind::deactivated);
        EXPECT_EQ(answers.back().payload, "");
    }
    EXPECT_EQ(readable, 0u) << "requests that every app can read";
    EXPECT_TRUE(reports.front().under_built_in_key);
    EXPECT_FALSE(reports.front().readable);
    EXPECT_EQ(reports.front().payload, "");
}

TEST(hostile_json, with_more_values_than_any_gateway_has_to_say_is_refused_before_it_is_built) {
    const auto list = [](std::size_t count, const std::string &entry) {
        std::string text = R"({"products":[)" + entry;
        for (std::size_t made = 1; made < count; ++made) {
            text += "," + entry;
        }
        return text + "]}";
    };
    const std::string entry = R"({"cid":"a4c1380001000001","pid":"zbswitch2gang001"})";
    EXPECT_EQ(engr_app::parse_device_list(list(max_devices, entry)).size(), max_devices);
    EXPECT_LT(list(max_devices, entry).size() + 100, max_received_frame_bytes)
        << "and it fits into a frame";
    EXPECT_THROW(static_cast<void>(engr_app::parse_device_list(list(max_devices + 1, entry))),
                 engr_app::failure);
    EXPECT_TRUE(engr_app::parse_json(list(max_json_values, "0")).is_discarded());
    EXPECT_FALSE(engr_app::parse_json(list(1, "\"" + std::string(max_json_values, ',') + "\""))
                     .is_discarded())
        << "commas within texts are no values";
}

TEST(hostile_reports, that_nobody_waits_for_are_kept_within_bounds_the_newest_of_them) {
    engr_app::global_options chosen;
    chosen.timeout_s = 60;
    engr_app::screen shown_on;
    engr_app::console out(shown_on, true, false);
    engr_app::gateway_session session(chosen, out, nullptr);
    fake_gateway gateway(session.loop());
    chosen.gateways = {"127.0.0.1:" + std::to_string(gateway.port())};
    constexpr std::uint32_t count = 2 * max_kept_reports;
    gateway.on_request = [&](const seen_request &request) {
        std::string flood;
        for (std::uint32_t made = 1; made <= count; ++made) {
            flood += gateway_frame(0, frame_type::dp_report, {made}, "");
        }
        gateway.send(flood + gateway_frame(request.number, request.type, {0}, ""));
    };
    engr_app::report_subscription reports(session);
    EXPECT_EQ(session.ask({{.type = frame_type::dev_list}}).front().failure.kind, error_kind::none);
    const auto last = reports.next([](const report &one) { return one.ret == count; }, limit);
    EXPECT_TRUE(last) << "the newest one must be kept";
    std::size_t kept = 0;
    while (reports.next([](const report &) { return true; }, 0ms)) {
        ++kept;
    }
    EXPECT_EQ(kept, max_kept_reports - 1);
}

} // namespace
