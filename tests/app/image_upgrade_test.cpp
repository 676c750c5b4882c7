// The app's side of an upgrade: announcing, answering requests for pieces, and noticing its end.
#include "lan_client/client.h"
#include "lan_client/frame_types.h"
#include "lan_client/image_pieces.h"
#include "lan_client/image_sender.h"
#include "lan_client/upgrade_monitor.h"
#include "lan_client/upgrade_status.h"

#include <gtest/gtest.h>

namespace {

using namespace lan_client;

const upgrade_order for_gateway{"", "2.0", 5, "m"};
const upgrade_order for_device{"a", "2.0", 5, "m"};

/** A gateway's request for a piece. */
std::string piece(uint64_t offset, uint64_t bytes, const std::string &id = "gw",
                  uint64_t type = gateway_firmware) {
    return R"({"firmwareType":)" + std::to_string(type) + R"(,"cid":")" + id + R"(","offset":)" +
           std::to_string(offset) + R"(,"downloadSize":)" + std::to_string(bytes) + "}";
}

TEST(image_upgrade, is_announced_started_and_asked_after) {
    EXPECT_EQ(announce_request(for_gateway).type, frame_type::chk_soft_ver);
    EXPECT_EQ(announce_request(for_gateway).payload,
              R"({"fileMd5":"m","fileSize":5,"swVer":"2.0"})");
    EXPECT_EQ(announce_request(for_device).type, frame_type::dev_upgrade_info);
    EXPECT_EQ(upgrade_status_request(for_device).payload,
              R"({"cid":"a","fileMd5":"m","fileSize":0,"firmwareType":10,"swVer":"2.0"})");
    EXPECT_EQ(start_request(for_gateway, "gw").payload, R"({"cid":"gw","firmwareType":0})");
    EXPECT_EQ(start_request(for_device, "a").payload, R"({"cid":"a","firmwareType":10})");

    const std::string text = R"({"updateStatus":1,"updateCid":"gw","cid":"gw","softVer":"1.0"})";
    EXPECT_TRUE(read_upgrade_status(for_gateway, text)->is_running_here());
    EXPECT_FALSE(read_upgrade_status(for_device, text)->is_running_here());
    EXPECT_EQ(read_upgrade_status(for_device, text)->version, "1.0");
    EXPECT_FALSE(
        read_upgrade_status(for_gateway, R"({"updateStatus":0,"softVer":""})")->is_running_here());
    for (const char *none : {"[]", R"({"updateStatus":0})", R"({"softVer":"1"})"}) {
        EXPECT_FALSE(read_upgrade_status(for_gateway, none)) << none;
    }
    EXPECT_EQ(announce_request({"", "2.0é", 5, "m\xff"}).payload,
              R"({"fileMd5":"m�","fileSize":5,"swVer":"2.0é"})");
    EXPECT_TRUE(same_version("1.0a", "1.0A"));
    EXPECT_FALSE(same_version("1.0", "1.0.1"));
    EXPECT_FALSE(same_version("1.0", "1.1"));
}

TEST(image_upgrade, follows_only_requests_that_its_course_can_lead_to) {
    const struct {
        std::string payload;
        const char *fault;
    } cases[] = {
        {piece(0, 60), ""},
        {piece(60, 40, "other", device_firmware), ""},
        {piece(50, 50), ""},
        {piece(100, 0), ""},
        {piece(101, 0), "asks for a piece that is not in the image"},
        {piece(60, 41), "asks for a piece that is not in the image"},
        {piece(61, 10), "asks for a piece without having got the one before"},
        {piece(60, 0), "says before the end of the image that it has all of it"},
        {piece(0, 60, "gw", 3), "asks for a piece of an unknown type of firmware"},
        {piece(0, 60, "foreign"), "asks for a piece for another device"},
        {R"({"firmwareType":0,"cid":"gw","offset":0})", "sent no request for a piece of the image"},
        {R"({"firmwareType":0,"cid":"gw","downloadSize":1})",
         "sent no request for a piece of the image"},
        {R"({"cid":"gw","offset":0,"downloadSize":1})", "sent no request for a piece of the image"},
    };
    for (const auto &one : cases) {
        piece_requests pieces(100, {"gw", "other"});
        pieces.sent({0, 60}, one.payload == piece(100, 0) ? 100 : 60);
        piece_request wanted;
        const std::string expected =
            *one.fault == '\0' ? "" : one.fault + std::string(": ") + one.payload;
        EXPECT_EQ(pieces.next(one.payload, wanted), expected);
    }
}

TEST(image_upgrade, ends_when_the_same_pieces_are_asked_for_again_and_again) {
    piece_requests repeating(100, {"gw"});
    piece_request wanted;
    int taken = 0;
    while (taken < 2000 && repeating.next(piece(0, 1), wanted).empty()) {
        repeating.sent(wanted, wanted.bytes);
        ++taken;
    }
    EXPECT_EQ(taken, 1001) << "expected one request and 1000 repeats";

    piece_requests returning(100, {"gw"});
    int returns = 0;
    for (int asked = 0; asked < 3000; ++asked) {
        // Forward once, and then behind where it was.
        const uint64_t offset = asked == 0 ? 0 : asked == 1 ? 60 : 30;
        if (!returning.next(piece(offset, 40), wanted).empty()) {
            break;
        }
        returning.sent({offset, 60}, 60);
        returns += asked > 1 ? 1 : 0;
    }
    EXPECT_EQ(returns, 1000);

    // Each request goes a little further, and the bytes are sent over and over.
    constexpr uint64_t image = 1024 * 1024;
    piece_requests crawling(image, {"gw"});
    uint64_t sent = 0;
    for (uint64_t offset = 0; crawling.next(piece(offset, image - offset), wanted).empty();
         ++offset) {
        crawling.sent(wanted, wanted.bytes);
        sent += wanted.bytes;
        ASSERT_LE(sent, 200 * image);
    }
    EXPECT_GT(sent, (16 + 64) * image);
    EXPECT_LE(sent, (16 + 64 + 1) * image);
}

TEST(image_upgrade, bears_few_open_requests_and_a_source_that_fails_but_no_more) {
    event_loop loop;
    client_options options;
    options.keys = {unactivated_key()};
    client to(loop, options); // never opened
    int changes = 0;
    std::vector<std::size_t> counts;
    bool can_read = true;
    const auto make = [&](uint64_t image_bytes) {
        return image_sender(
            to, image_bytes, {"gw"}, std::chrono::seconds(60),
            [&](std::string &bytes, uint64_t, std::size_t count) {
                counts.push_back(count);
                bytes.append(can_read ? count : 0, 'x');
                return can_read;
            },
            [&] { ++changes; });
    };
    const auto asks = [](uint64_t offset, uint64_t bytes) {
        return report{.type = frame_type::download_firmware, .payload = piece(offset, bytes)};
    };
    image_sender piled = make(100);
    EXPECT_FALSE(piled.take({.type = frame_type::dp_report}));
    EXPECT_FALSE(piled.take({.type = frame_type::download_firmware, .readable = false}));
    for (int taken = 0; taken < 9; ++taken) {
        EXPECT_TRUE(piled.take(asks(0, 10)));
        EXPECT_EQ(piled.fault(), "");
    }
    EXPECT_EQ(changes, 1);
    EXPECT_TRUE(piled.take(asks(0, 10)));
    EXPECT_EQ(piled.fault(), "asks for many pieces without taking them");
    EXPECT_EQ(changes, 2);

    image_sender done = make(0);
    EXPECT_TRUE(done.take(asks(0, 0)));
    EXPECT_TRUE(done.is_complete());
    EXPECT_TRUE(done.take(asks(5, 5))) << "expected to be silent once it is over";
    EXPECT_EQ(done.fault(), "");

    counts.clear();
    image_sender huge = make(10'000'000);
    EXPECT_TRUE(huge.take(asks(0, 10'000'000)));
    EXPECT_EQ(counts, std::vector<std::size_t>{max_request_payload_bytes - 16 - 4});

    can_read = false;
    image_sender unreadable = make(100);
    EXPECT_TRUE(unreadable.take(asks(0, 10)));
    EXPECT_EQ(unreadable.fault(), "can't have a piece of the image: it can't be read any more");
    EXPECT_FALSE(unreadable.is_complete());
}

TEST(upgrade_monitor, sees_an_upgrade_begin_and_end) {
    const auto percent = [](const char *body) {
        return report{.type = frame_type::upgrade_percent_rpt, .payload = body};
    };
    const auto refusal = [](const char *text) {
        return answer{.type = frame_type::tp_cmd, .ret = 1, .payload = text};
    };
    const auto status = [](uint32_t type, const char *text) {
        return answer{.type = type, .payload = text};
    };
    upgrade_monitor monitor;
    const auto state = [&] {
        return (monitor.is_running() ? "runs:" + monitor.id() : "no") +
               (monitor.is_running() && monitor.refuses_commands() ? " refusing" : "");
    };
    report damaged = percent(R"({"cid":"gw","progress":1})");
    damaged.readable = false;
    report failed = percent(R"({"cid":"gw","progress":1})");
    failed.ret = 1;
    monitor.on_report(damaged);
    monitor.on_report(failed);
    monitor.on_report(percent(R"({"cid":"gw","progress":"1"})"));
    monitor.on_report({.type = frame_type::dp_report, .payload = R"({"progress":1})"});
    monitor.on_answer({.failure = {error_kind::timed_out, {}}, .payload = "dev is upgrading"});
    monitor.on_answer(status(frame_type::tp_cmd, R"({"updateStatus":1})"));
    monitor.on_answer(status(frame_type::chk_soft_ver, "{}"));
    EXPECT_EQ(state(), "no");

    monitor.on_report(percent(R"({"cid":"gw","progress":99})"));
    EXPECT_EQ(state(), "runs:gw");
    EXPECT_EQ(monitor.last_progress(), monitor.last_sign());
    const auto began = monitor.last_progress();
    monitor.on_report(percent(R"({"cid":"gw","progress":99})"));
    EXPECT_EQ(monitor.last_progress(), began) << "expected the same percentage to be no progress";
    EXPECT_GT(monitor.last_sign(), began);
    monitor.on_answer(refusal("device is upgrading..."));
    EXPECT_EQ(state(), "runs:gw refusing");
    monitor.on_report(percent(R"({"cid":"gw","progress":100})"));
    EXPECT_EQ(state(), "no");
    monitor.on_answer(refusal("dev is upgrading"));
    EXPECT_EQ(state(), "runs:") << "expected nothing to be known of it yet";
    const auto again = monitor.last_progress();
    EXPECT_GT(again, began);
    monitor.on_report(percent(R"({"cid":"a","progress":1})"));
    EXPECT_GT(monitor.last_progress(), again) << "expected percentages to begin anew";
    EXPECT_EQ(state(), "runs:a");
    monitor.on_report({.type = frame_type::subdevice_update_rpt});
    EXPECT_EQ(state(), "no");
    monitor.on_answer(
        status(frame_type::dev_upgrade_info, R"({"updateStatus":1,"updateCid":"b"})"));
    EXPECT_EQ(state(), "runs:b");
    monitor.on_answer(status(frame_type::chk_soft_ver, R"({"updateStatus":0})"));
    EXPECT_EQ(state(), "no");
    monitor.on_answer(status(frame_type::chk_soft_ver, R"({"updateStatus":1,"updateCid":"gw"})"));
    EXPECT_EQ(state(), "runs:gw");
}

} // namespace
