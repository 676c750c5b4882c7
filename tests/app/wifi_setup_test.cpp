// Giving a gateway its network, from the first datagram to each outcome, to the millisecond.
#include "lan_client/wifi_setup.h"
#include "support/gateway_frame.h"
#include "support/virtual_loop.h"
#include "virtual_gateway.h"

#include <optional>

#include <gtest/gtest.h>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

announcement waiting(const std::string &id) {
    announcement heard;
    heard.id = id;
    heard.interface_name = "ap";
    heard.needs_wifi_setup = true;
    return heard;
}

const char *const end_names[] = {"joined", "unconfirmed", "failed", "silent"};

/** An app that sends a network three times, a second apart, and waits for 10 s. */
class wifi_scene {
  public:
    explicit wifi_scene(wifi_candidates candidates = {"", "gw"}) : before(std::move(candidates)) {
        order.network = {"n", "p", "t"};
        order.coding = payload_coding::plain;
        order.interface_name = "ap";
        order.times = 3;
        order.limit = 10s;
        fuzz::the_far_side().on_datagram = [this](const fuzz::sent_datagram &sent) {
            last = sent;
            return can_send ? error{} : error{error_kind::unreachable, "gone"};
        };
    }
    wifi_scene(const wifi_scene &) = delete;
    wifi_scene &operator=(const wifi_scene &) = delete;
    ~wifi_scene() { fuzz::the_far_side() = {}; }

    [[nodiscard]] error begin() {
        told_story = {};
        setup.emplace(
            loop, order, before,
            [this](unsigned sent, const error &problem) {
                told_story.note("sent " + std::to_string(sent) + " " + problem.detail);
            },
            [this](const wifi_setup_outcome &outcome) { note(outcome); });
        return setup->start();
    }

    std::string tell() {
        EXPECT_FALSE(begin());
        pass(1h);
        return told_story.text();
    }

    void pass(milliseconds time) {
        loop.run_until([] { return false; }, time);
    }

    void at(milliseconds when, std::function<void()> work) {
        fuzz::call_later(when, std::move(work));
    }

    /** A gateway announces itself. */
    void announces(milliseconds when, const std::string &id, bool needs_wifi,
                   const aes_key &key = discovery_key(), const std::string &on = "home") {
        const std::string text =
            R"({"gwId":")" + id + R"(","active":2,"wf_cfg":)" + (needs_wifi ? "true}" : "false}");
        at(when, [text, key, on] {
            fuzz::deliver(discovery_port, fuzz::gateway_frame(0, 19, {0}, encrypt(key, text)), on);
        });
    }

    /** A gateway says that it could not join. */
    void fails(milliseconds when, const std::string &text, const aes_key &key = configuration_key(),
               const std::string &on = "ap") {
        at(when, [text, key, on] {
            fuzz::deliver(wifi_failure_port, fuzz::gateway_frame(0, 20, {0}, encrypt(key, text)),
                          on);
        });
    }

    event_loop loop;
    wifi_setup_order order;
    wifi_candidates before;
    story told_story;
    fuzz::sent_datagram last;
    bool can_send = true;
    bool is_kept = false; ///< after its end
    std::optional<wifi_setup> setup;

  private:
    void note(const wifi_setup_outcome &outcome) {
        told_story.note(
            std::string(end_names[static_cast<int>(outcome.end)]) + " sent " +
            std::to_string(outcome.sent) + ", unreadable " + std::to_string(outcome.unreadable) +
            (outcome.appeared
                 ? ", " + outcome.appeared->id + " on " + outcome.appeared->interface_name
                 : "") +
            (outcome.failure ? ", " + std::to_string(outcome.failure->result.value_or(-1)) + " " +
                                   outcome.failure->description
                             : ""));
        is_kept ? void() : setup.reset();
    }
};

const std::string three = "0 sent 1 \n1000 sent 2 \n2000 sent 3 \n";
const aes_key other_key = *aes_key::from_text("another key of16");

TEST(wifi_setup_in_time, tells_one_outcome_whatever_is_heard_later) {
    wifi_scene kept;
    kept.is_kept = true;
    kept.announces(100ms, "gw", false);
    kept.announces(200ms, "gw", false);
    EXPECT_EQ(kept.tell(), "0 sent 1 \n100 joined sent 1, unreadable 0, gw on home\n");
}

TEST(wifi_setup_in_time, sends_as_often_as_ordered_and_ends_with_what_is_heard) {
    const struct {
        const char *what;
        const char *wanted_id;
        std::function<void(wifi_scene &)> plan;
        std::string expected;
    } cases[] = {
        {"nothing", "gw", [](wifi_scene &) {}, three + "10000 silent sent 3, unreadable 0\n"},
        {"it joins at once", "gw", [](wifi_scene &all) { all.announces(1500ms, "gw", false); },
         "0 sent 1 \n1000 sent 2 \n1500 joined sent 2, unreadable 0, gw on home\n"},
        {"it still waits, and others have their networks", "gw",
         [](wifi_scene &all) {
             all.announces(3s, "gw", true);
             all.announces(3s, "other", false);
         },
         three + "10000 silent sent 3, unreadable 0\n"},
        {"one that waited joins, whichever was to", "",
         [](wifi_scene &all) {
             all.before.note(waiting("a"));
             all.announces(3s, "a", false);
         },
         three + "3000 joined sent 3, unreadable 0, a on home\n"},
        {"another than one that waited", "",
         [](wifi_scene &all) {
             all.before.note(waiting("a"));
             all.announces(3s, "b", false);
         },
         three + "10000 unconfirmed sent 3, unreadable 0, b on home\n"},
        {"nobody waited", "", [](wifi_scene &all) { all.announces(3s, "b", false); },
         three + "3000 unconfirmed sent 3, unreadable 0, b on home\n"},
        {"it could not join", "gw",
         [](wifi_scene &all) { all.fails(3s, R"({"result":-5,"desc":"no such network"})"); },
         three + "3000 failed sent 3, unreadable 0, -5 no such network\n"},
        {"what can't be read", "gw",
         [](wifi_scene &all) {
             all.announces(1s, "gw", false, other_key);
             all.fails(1s, R"({"result":-5})", other_key);
             all.at(1s, [] { fuzz::deliver(discovery_port, "noise", "home"); });
             all.at(1s, [] { fuzz::deliver(wifi_failure_port, "noise", "ap"); });
         },
         three + "10000 silent sent 3, unreadable 2\n"},
        {"a failure on another interface", "gw",
         [](wifi_scene &all) { all.fails(3s, R"({"result":-5})", configuration_key(), "home"); },
         three + "10000 silent sent 3, unreadable 0\n"},
        {"on another interface than it is to appear on", "gw",
         [](wifi_scene &all) {
             all.order.new_interface_name = "wlan";
             all.announces(3s, "gw", false);
             all.announces(4s, "gw", false, discovery_key(), "wlan");
         },
         three + "4000 joined sent 3, unreadable 0, gw on wlan\n"},
        {"the interface goes away with the gateway's own network", "gw",
         [](wifi_scene &all) {
             all.at(500ms, [&all] { all.can_send = false; });
             all.at(1500ms, [&all] { all.can_send = true; });
         },
         "0 sent 1 \n1000 sent 1 gone\n2000 sent 2 \n10000 silent sent 2, unreadable 0\n"},
        {"once is enough, with other keys", "gw",
         [](wifi_scene &all) {
             all.order.times = 1;
             all.order.discovery = all.order.configuration = other_key;
             all.fails(3s, R"({"result":1})", other_key);
             all.announces(2s, "gw", false, discovery_key());
         },
         "0 sent 1 \n3000 failed sent 1, unreadable 1, 1 \n"},
    };
    for (const auto &one : cases) {
        wifi_scene all({"", one.wanted_id});
        one.plan(all);
        EXPECT_EQ(all.tell(), one.expected) << one.what;
        EXPECT_EQ(all.last.interface_name, "ap");
        EXPECT_EQ(all.last.address, broadcast_address);
        EXPECT_EQ(all.last.port, configuration_port);
    }
}

TEST(wifi_setup_in_time, has_the_usual_numbers_and_needs_nobody_who_listens) {
    wifi_scene all;
    all.order = {};
    all.order.network = {"n", "p", "t"};
    unsigned sent = 0;
    all.setup.emplace(all.loop, all.order, all.before, wifi_setup::sent_callback(),
                      [&](const wifi_setup_outcome &outcome) { sent = outcome.sent; });
    ASSERT_FALSE(all.setup->start());
    all.pass(60s - 1ms);
    EXPECT_EQ(sent, 0U);
    all.pass(1ms);
    EXPECT_EQ(sent, 10U) << "expected the outcome after 60 s";
}

TEST(wifi_setup_in_time, what_can_not_begin_says_why_and_has_no_outcome) {
    const struct {
        const char *what;
        std::function<void(wifi_scene &)> plan;
        error_kind expected;
    } cases[] = {
        {"sent on", [](wifi_scene &all) { all.order.interface_name = "no-such-if"; },
         error_kind::no_interface},
        {"appears on", [](wifi_scene &all) { all.order.new_interface_name = "no-such-if"; },
         error_kind::no_interface},
        {"unsent", [](wifi_scene &all) { all.can_send = false; }, error_kind::unreachable},
        {"too long", [](wifi_scene &all) { all.order.network.password = std::string(300, 'p'); },
         error_kind::too_large},
    };
    for (const auto &one : cases) {
        wifi_scene all;
        one.plan(all);
        EXPECT_EQ(all.begin().kind, one.expected) << one.what;
        all.pass(1h);
        EXPECT_EQ(all.told_story.text(), "") << one.what;
    }
}

TEST(wifi_setup_in_time, one_that_is_destroyed_sends_and_tells_nothing_more) {
    wifi_scene all;
    ASSERT_FALSE(all.begin());
    all.pass(500ms);
    all.setup.reset();
    all.fails(0ms, R"({"result":1})");
    all.pass(1h);
    EXPECT_EQ(all.told_story.text(), "0 sent 1 \n");
}

TEST(provisioning_in_time, configurations_and_failures_are_told_as_they_are) {
    const struct {
        payload_coding coding;
        uint32_t type;
        const char *frame;
    } codings[] = {{payload_coding::plain, 1, "sent 1 1 0 {} 192.0.2.9:6669"},
                   {payload_coding::encrypted, 20, "sent 1 20 1 {} 192.0.2.9:6669"}};
    event_loop loop;
    std::string frames;
    std::string failures;
    provisioning_channel channel(
        loop,
        [&](const std::optional<wifi_failure> &told) {
            failures += !told ? "unreadable;"
                              : told->address + " " +
                                    (told->result ? std::to_string(*told->result) : "-") + " " +
                                    told->description + ";";
        },
        [&](const traffic &seen) {
            frames = std::string(seen.sent ? "sent " : "received ") +
                     (seen.discovery ? "discovery " : "") + std::to_string(seen.number) + " " +
                     std::to_string(seen.type) + " " +
                     std::to_string(static_cast<int>(seen.state)) + " " + std::string(seen.text) +
                     " " + std::string(seen.peer);
        });
    fuzz::sent_datagram last;
    fuzz::the_far_side().on_datagram = [&last](const fuzz::sent_datagram &sent) {
        last = sent;
        return error{};
    };
    ASSERT_FALSE(channel.open("ap"));
    for (const auto &one : codings) {
        EXPECT_FALSE(channel.send("{}", one.coding, "192.0.2.9"));
        EXPECT_EQ(frames, one.frame);
        const auto got = decode_request(last.bytes);
        ASSERT_EQ(got.status, decode_status::whole);
        EXPECT_EQ(got.decoded.type, one.type);
        EXPECT_EQ(got.decoded.number, 1U);
        EXPECT_EQ(one.type == 1 ? got.decoded.payload
                                : decrypt(configuration_key(), got.decoded.payload),
                  "{}");
    }
    const auto hear = [&](const std::string &text, const aes_key &key, uint32_t type) {
        failures.clear();
        fuzz::deliver(wifi_failure_port, fuzz::gateway_frame(0, type, {0}, encrypt(key, text)),
                      "ap");
        loop.run_until([] { return false; }, 0ms);
        return failures;
    };
    const aes_key key = configuration_key();
    EXPECT_EQ(hear(R"({"result":-3,"desc":"d"})", key, 20), "127.0.0.1 -3 d;");
    EXPECT_EQ(frames, R"(received 0 20 1 {"result":-3,"desc":"d"} 127.0.0.1)");
    EXPECT_EQ(hear(R"({"result":2,"desc":7})", key, 20), "127.0.0.1 2 ;");
    EXPECT_EQ(hear(R"({"result":"2"})", key, 20), R"(127.0.0.1 - {"result":"2"};)");
    EXPECT_EQ(hear(R"({"result":2,"desc":"cut of)", key, 20),
              R"(127.0.0.1 - {"result":2,"desc":"cut of;)");
    EXPECT_EQ(hear(R"({"other":2})", key, 20), "unreadable;");
    EXPECT_EQ(hear(R"({"result":2})", other_key, 20), "unreadable;");
    EXPECT_EQ(hear(R"({"result":2})", key, 19), "");
    fuzz::the_far_side() = {};
}

} // namespace
