// How much a client takes from a gateway, and how much it takes on for it, to the byte.
#include "lan_client/client.h"
#include "support/gateway_frame.h"
#include "virtual_gateway.h"

#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;

struct client_limits : testing::Test {
    client_limits() {
        client_options wanted;
        wanted.address = "192.0.2.1";
        wanted.keys = {unactivated_key()};
        app.emplace(loop, wanted);
        app->open();
    }

    answer answer_to(request wanted) {
        std::optional<answer> came;
        app->ask(std::move(wanted), [&came](const answer &got) { came = got; });
        EXPECT_TRUE(loop.run_until([&came] { return came.has_value(); }, 1min));
        return came.value_or(answer{});
    }

    event_loop loop;
    virtual_gateway gateway;
    std::optional<client> app;
};

TEST_F(client_limits, a_request_leaves_room_for_the_padding_of_its_encryption) {
    gateway.on_request = [this](const frame &seen) { gateway.reply(seen, 0, ""); };
    const std::size_t most = max_request_payload_bytes - key_bytes;
    for (const payload_coding coding : {payload_coding::plain, payload_coding::encrypted}) {
        request wanted{.type = frame_type::download_app_cfg, .coding = coding};
        wanted.payload = std::string(most, 'x');
        EXPECT_FALSE(answer_to(wanted).failure);
        wanted.payload += 'x';
        const answer got = answer_to(wanted);
        EXPECT_EQ(got.failure.kind, error_kind::too_large);
        EXPECT_EQ(got.failure.detail, std::to_string(most + 1));
    }
}

TEST_F(client_limits, nobody_needs_to_listen_to_a_client) {
    gateway.on_request = [this](const frame &) {
        gateway.report(frame_type::dp_report, "{}");
        gateway.hang_up();
    };
    EXPECT_EQ(answer_to({.type = frame_type::get_log}).failure.kind, error_kind::connection_lost);
}

TEST_F(client_limits, requests_under_way_hold_8_mib) {
    fuzz::the_far_side().piece_time = 1h;
    constexpr std::size_t overhead_bytes = 4 * 1024; // the records of four requests take less
    const std::size_t most = 8 * 1024 * 1024;
    std::string failures;
    const auto ask = [&](std::size_t bytes) {
        app->ask({.type = frame_type::download_app_cfg, .payload = std::string(bytes, 'x')},
                 [&failures](const answer &got) {
                     failures += error_name(got.failure.kind) + std::string(" ");
                 });
        loop.run_until([] { return false; }, 1ms);
    };
    for (int asked = 0; asked < 4; ++asked) {
        ask((most - overhead_bytes) / 4);
    }
    EXPECT_EQ(failures, "");
    ask(overhead_bytes);
    EXPECT_EQ(failures, "queue_full ");
}

TEST_F(client_limits, frames_that_come_together_are_handled_64_at_a_time) {
    client_events events;
    int reports = 0;
    events.on_report = [&reports](const report &) { ++reports; };
    client_options wanted;
    wanted.address = "192.0.2.1";
    wanted.keys = {unactivated_key()};
    app.emplace(loop, wanted, events);
    app->open();
    loop.run_until([] { return false; }, 1ms);
    std::string flood;
    for (int made = 0; made < 150; ++made) {
        flood += fuzz::gateway_frame(0, frame_type::dp_report, {0}, "");
    }
    gateway.send(flood);
    std::string steps;
    loop.run_until(
        [&, seen = 0]() mutable {
            steps +=
                reports > seen ? std::to_string(reports - std::exchange(seen, reports)) + " " : "";
            return false;
        },
        1ms);
    EXPECT_EQ(steps, "64 64 22 ");
    gateway.report(frame_type::dp_report, "{}");
    loop.run_until([] { return false; }, 1ms);
    EXPECT_EQ(reports, 151) << "expected reading to go on";
}

TEST_F(client_limits, a_transfer_has_64_mib_and_65536_segments) {
    const std::string mib(1024 * 1024, 's');
    uint32_t count = 0;
    std::string segment;
    std::string last;
    gateway.on_request = [&](const frame &seen) {
        for (uint32_t number = 1; number <= count; ++number) {
            gateway.send(fuzz::gateway_frame(seen.number, seen.type, {0, count, number},
                                             number == count ? last : segment));
        }
    };
    const struct {
        const char *what;
        uint32_t count;
        std::string segment;
        std::string last;
        const char *failure;
        std::size_t bytes;
    } cases[] = {
        {"64 MiB", 65, mib, "", "", 64 * mib.size()},
        {"a byte more", 65, mib, "s", "65 segments", 64 * mib.size()},
        {"many segments", 65536, "", "", "", 0},
        {"one more", 65537, "", "", "65537 segments", 0},
    };
    for (const auto &one : cases) {
        count = one.count;
        segment = one.segment;
        last = one.last;
        const answer got = answer_to({.type = frame_type::get_log});
        EXPECT_EQ(got.failure.kind,
                  *one.failure == '\0' ? error_kind::none : error_kind::answer_too_long)
            << one.what;
        EXPECT_EQ(got.failure.detail, one.failure) << one.what;
        EXPECT_EQ(got.payload.size(), one.bytes) << one.what;
    }
}

} // namespace
