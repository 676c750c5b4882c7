// The C interface against a scripted gateway, its descriptor watched by a foreign event loop.
#include "fake_gateway.h"
#include "lan_client/errors.h"

#include <engr_lan_client.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>

#include <asio/posix/stream_descriptor.hpp>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

// A bound against hanging; nothing waits for it.
constexpr auto limit = 60s;

constexpr uint32_t FRM_DP_REPORT = 8;
constexpr uint32_t FRM_LOCAL_DP_QUERY = 10;
constexpr uint32_t FRM_DEV_UPGRADE = 230;
constexpr uint32_t FRM_DOWNLOAD_FIRMWARE = 231;
constexpr uint32_t FRM_DEV_LIST = 241;
constexpr uint32_t FRM_CHK_SOFT_VER = 250;
constexpr uint32_t FRM_GET_LOG = 254;

struct free_event {
    void operator()(engr_client_event *event) const { engr_client_free_event(event); }
};
using event_owner = std::unique_ptr<engr_client_event, free_event>;

struct close_client {
    void operator()(engr_client *client) const { engr_client_close(client); }
};
using client_owner = std::unique_ptr<engr_client, close_client>;

struct c_interface : testing::Test {
    engr_client_options options() {
        engr_client_options wanted{};
        wanted.size = sizeof wanted;
        wanted.address = "127.0.0.1";
        wanted.interface_name = "lo";
        wanted.port = gateway.port();
        wanted.request_timeout_ms = 60000;
        return wanted;
    }

    client_owner open(const engr_client_options &wanted) {
        engr_client *made = nullptr;
        EXPECT_EQ(engr_client_open_gateway(&wanted, &made), ENGR_CLIENT_OK);
        return client_owner(made);
    }

    static uint32_t request(const client_owner &client, uint32_t type,
                            const std::string &payload = "") {
        uint32_t id = 0;
        EXPECT_EQ(engr_client_request(client.get(), type, payload.c_str(), payload.size(), 0, &id),
                  ENGR_CLIENT_OK);
        return id;
    }

    // The next event of the kind, taken when the descriptor says that one waits.
    event_owner next(const client_owner &client, engr_client_event_kind kind) {
        asio::posix::stream_descriptor watched(loop.context(),
                                               dup(engr_client_descriptor(client.get())));
        event_owner found;
        std::function<void()> watch = [&] {
            watched.async_wait(asio::posix::stream_descriptor::wait_read, [&](auto failed) {
                if (!failed) {
                    event_owner got(engr_client_next_event(client.get()));
                    EXPECT_TRUE(got) << "a readable descriptor means an event";
                    if (got && got->kind == kind) {
                        found = std::move(got);
                    } else {
                        watch();
                    }
                }
            });
        };
        watch();
        EXPECT_TRUE(loop.run_until([&] { return found != nullptr; }, limit)) << "no event " << kind;
        return found;
    }

    lan_client::event_loop loop;
    fake_gateway gateway{loop};
};

TEST_F(c_interface, answers_reports_and_progress_come_as_events) {
    gateway.on_request = [&](const seen_request &seen) {
        if (seen.type == FRM_GET_LOG) {
            gateway.send(gateway_frame(seen.number, seen.type, {0, 2, 1}, "one "));
            gateway.send(gateway_frame(seen.number, seen.type, {0, 2, 2}, std::string("t\0o", 3)));
        } else {
            EXPECT_EQ(lan_client::decrypt(lan_client::unactivated_key(), seen.payload), "{}");
            gateway.send(gateway_frame(0, FRM_DP_REPORT, {0}, ""));
            gateway.reply(seen, 1, "devid not found");
        }
    };
    const client_owner client = open(options());
    const uint32_t query = request(client, FRM_LOCAL_DP_QUERY, "{}");
    EXPECT_TRUE(next(client, ENGR_CLIENT_CONNECTED));
    EXPECT_EQ(next(client, ENGR_CLIENT_REPORT)->type, FRM_DP_REPORT);
    const event_owner refusal = next(client, ENGR_CLIENT_ANSWER);
    EXPECT_EQ(refusal->request, query);
    EXPECT_EQ(refusal->ret, 1u);
    EXPECT_STREQ(refusal->payload, "devid not found");
    EXPECT_EQ(engr_client_next_event(client.get()), nullptr) << "and it never waits";

    const uint32_t log = request(client, FRM_GET_LOG);
    const event_owner progress = next(client, ENGR_CLIENT_PROGRESS);
    EXPECT_EQ(progress->request, log);
    EXPECT_EQ(progress->done, 1u);
    EXPECT_EQ(progress->total, 2u);
    const event_owner whole = next(client, ENGR_CLIENT_ANSWER);
    EXPECT_EQ(std::string(whole->payload, whole->payload_bytes), std::string("one t\0o", 7));
}

TEST_F(c_interface, says_what_is_wrong_with_arguments_and_does_nothing) {
    engr_client *made = nullptr;
    const auto refused = [&](const std::function<void(engr_client_options &)> &spoil) {
        engr_client_options wanted = options();
        spoil(wanted);
        return engr_client_open_gateway(&wanted, &made) == ENGR_CLIENT_BAD_ARGUMENT &&
               made == nullptr;
    };
    EXPECT_TRUE(refused([](auto &wanted) { wanted.size = 0; }));
    EXPECT_TRUE(refused([](auto &wanted) { wanted.address = nullptr; }));
    EXPECT_TRUE(refused([](auto &wanted) { wanted.local_key = "short"; }));
    EXPECT_TRUE(refused([](auto &wanted) { wanted.key3_seed = "a seed of 17 byte"; }));
    EXPECT_EQ(engr_client_open_gateway(nullptr, &made), ENGR_CLIENT_BAD_ARGUMENT);
    engr_client_options nowhere = options();
    nowhere.interface_name = "no-such-if";
    EXPECT_EQ(engr_client_open_discovery(&nowhere, &made), ENGR_CLIENT_NO_INTERFACE);

    const client_owner client = open(options());
    EXPECT_EQ(engr_client_request(client.get(), FRM_DEV_LIST, nullptr, 1, 0, nullptr),
              ENGR_CLIENT_BAD_ARGUMENT);
    EXPECT_EQ(engr_client_upgrade(client.get(), "/no/file", "1.0", nullptr, false, nullptr),
              ENGR_CLIENT_BAD_ARGUMENT);
    EXPECT_EQ(engr_client_upgrade(client.get(), "/proc/self/exe", "", nullptr, false, nullptr),
              ENGR_CLIENT_BAD_ARGUMENT);
    const std::string long_id(26, 'i');
    EXPECT_EQ(
        engr_client_upgrade(client.get(), "/proc/self/exe", "1.0", long_id.c_str(), false, nullptr),
        ENGR_CLIENT_BAD_ARGUMENT);
    engr_client_network network{};
    network.size = sizeof network;
    network.network = "net";
    network.token = "token";
    EXPECT_EQ(engr_client_provision(client.get(), &network, nullptr), ENGR_CLIENT_BAD_ARGUMENT)
        << "a gateway's client sends no networks";
    const engr_client_options anywhere = options();
    ASSERT_EQ(engr_client_open_provisioning(&anywhere, &made), ENGR_CLIENT_OK);
    const client_owner provisioning(made);
    EXPECT_EQ(engr_client_devices(made, 0, nullptr), ENGR_CLIENT_BAD_ARGUMENT);
    const std::string long_password(220, 'p');
    network.password = long_password.c_str();
    EXPECT_EQ(engr_client_provision(made, &network, nullptr), ENGR_CLIENT_TOO_LARGE);
    network.token = nullptr;
    EXPECT_EQ(engr_client_provision(made, &network, nullptr), ENGR_CLIENT_BAD_ARGUMENT);
    EXPECT_STREQ(engr_client_error_name(ENGR_CLIENT_CANCELLED), "cancelled");
    EXPECT_STREQ(engr_client_error_name(ENGR_CLIENT_NO_RESOURCES), "no_resources");
    EXPECT_STREQ(engr_client_error_name(static_cast<engr_client_error>(77)), "unknown");
    EXPECT_EQ(engr_client_frame_type("dev_list"), FRM_DEV_LIST);
    EXPECT_STREQ(engr_client_frame_type_name(FRM_GET_LOG), "FRM_GET_LOG");
}

TEST_F(c_interface, options_of_an_older_program_have_the_defaults_for_what_they_lack) {
    engr_client_options wanted = options();
    wanted.size = offsetof(engr_client_options, key1_seed);
    wanted.key3_seed = "not to be read";
    EXPECT_TRUE(open(wanted));
}

TEST_F(c_interface, a_seed_that_is_given_makes_the_key) {
    const auto key = lan_client::aes_key::from_seed("another-seed-003");
    gateway.on_request = [&](const seen_request &seen) {
        gateway.reply(seen, 0, R"({"products":[]})", *key);
    };
    engr_client_options wanted = options();
    const client_owner other_seed = open(wanted);
    request(other_seed, FRM_DEV_LIST);
    EXPECT_EQ(next(other_seed, ENGR_CLIENT_ANSWER)->error, ENGR_CLIENT_WRONG_KEY);

    wanted.key3_seed = "another-seed-003";
    const client_owner client = open(wanted);
    request(client, FRM_DEV_LIST);
    EXPECT_STREQ(next(client, ENGR_CLIENT_ANSWER)->payload, R"({"products":[]})");

    wanted.local_key = "local-key-of-gw1";
    const client_owner activated = open(wanted);
    request(activated, FRM_DEV_LIST);
    EXPECT_EQ(next(activated, ENGR_CLIENT_ANSWER)->error, ENGR_CLIENT_DEACTIVATED)
        << "the built-in key is known by its seed, but not used beside a local key";
}

/** What a scripted gateway does with an upgrade, and what the app is told. */
struct upgrade_case {
    const char *what;
    std::string version;      // installed before
    bool busy;                // with an upgrade of its own
    std::string refusal;      // of the start; empty: it starts
    std::string second_piece; // asked for after the first of 100 bytes; empty: it hangs up
    engr_client_error error;
    uint32_t ret;
    std::string payload;
};

TEST_F(c_interface, an_upgrade_is_one_request_with_one_answer) {
    const std::string path = testing::TempDir() + "engr_c_image_" + std::to_string(getpid());
    std::ofstream(path) << std::string(100, 'i');
    const auto ask_for = [](int offset, int bytes) {
        return R"({"firmwareType":0,"cid":"gw1","offset":)" + std::to_string(offset) +
               R"(,"downloadSize":)" + std::to_string(bytes) + "}";
    };
    const std::string all = ask_for(100, 0);
    const std::string none = R"({"upgraded":false,"version":"","version_before":"1.0"})";
    const upgrade_case cases[] = {
        {"installs", "1.0", false, "", all, ENGR_CLIENT_OK, 0,
         R"({"upgraded":true,"version":"2.0","version_before":"1.0"})"},
        {"has it already", "2.0", false, "", all, ENGR_CLIENT_OK, 0,
         R"({"upgraded":false,"version":"2.0","version_before":"2.0"})"},
        {"is busy", "1.0", true, "", all, ENGR_CLIENT_BUSY, 0,
         R"({"upgraded":false,"version":"","version_before":""})"},
        {"refuses", "1.0", false, "gw_lan_ug_cb error", all, ENGR_CLIENT_OK, 1,
         "gw_lan_ug_cb error"},
        {"asks too much", "1.0", false, "", ask_for(100, 1), ENGR_CLIENT_BAD_ANSWER, 0, none},
        {"hangs up", "1.0", false, "", "", ENGR_CLIENT_CONNECTION_LOST, 0, none},
    };
    for (const upgrade_case &one : cases) {
        SCOPED_TRACE(one.what);
        std::string installed = one.version;
        const auto want = [&](const std::string &text) {
            gateway.send(gateway_frame(0, FRM_DOWNLOAD_FIRMWARE, {0},
                                       lan_client::encrypt(lan_client::unactivated_key(), text)));
        };
        gateway.on_request = [&](const seen_request &seen) {
            if (seen.type == FRM_CHK_SOFT_VER) {
                gateway.reply(seen, 0,
                              std::string(R"({"updateStatus":)") + (one.busy ? "1" : "0") +
                                  R"(,"updateCid":"gw1","cid":"gw1","softVer":")" + installed +
                                  "\"}");
            } else if (seen.type == FRM_DEV_UPGRADE) {
                gateway.reply(seen, one.refusal.empty() ? 0 : 1, one.refusal);
                if (one.refusal.empty()) {
                    want(ask_for(0, 100));
                }
            } else if (seen.type == FRM_DOWNLOAD_FIRMWARE) {
                EXPECT_EQ(seen.payload, std::string(4, '\0') + std::string(100, 'i'));
                installed = "2.0";
                one.second_piece.empty() ? gateway.hang_up() : want(one.second_piece);
            }
        };
        const client_owner client = open(options());
        uint32_t id = 0;
        ASSERT_EQ(engr_client_upgrade(client.get(), path.c_str(), "2.0", nullptr, false, &id),
                  ENGR_CLIENT_OK);
        const event_owner answer = next(client, ENGR_CLIENT_ANSWER);
        EXPECT_EQ(answer->request, id);
        EXPECT_EQ(answer->error, one.error) << answer->error_text;
        EXPECT_EQ(answer->ret, one.ret);
        EXPECT_EQ(answer->payload, one.payload);
    }
    unlink(path.c_str());
}

TEST_F(c_interface, a_second_upgrade_waits_for_nobody) {
    const client_owner client = open(options()); // the gateway never answers
    for (int made = 0; made < 2; ++made) {
        ASSERT_EQ(engr_client_upgrade(client.get(), "/proc/self/exe", "2.0", "", false, nullptr),
                  ENGR_CLIENT_OK);
    }
    EXPECT_EQ(next(client, ENGR_CLIENT_ANSWER)->error, ENGR_CLIENT_BUSY);
}

TEST_F(c_interface, a_lost_connection_is_told_and_ends_its_requests) {
    gateway.on_request = [&](const seen_request &) { gateway.hang_up(); };
    const client_owner client = open(options());
    const uint32_t id = request(client, FRM_DEV_LIST);
    const event_owner answer = next(client, ENGR_CLIENT_ANSWER);
    EXPECT_EQ(answer->request, id);
    EXPECT_EQ(answer->error, ENGR_CLIENT_TABLE_FULL) << "it was closed before a single byte";
    EXPECT_EQ(next(client, ENGR_CLIENT_DISCONNECTED)->pause_ms, 0u);
}

TEST_F(c_interface, who_takes_no_events_loses_old_reports_but_no_answer) {
    bool second_came = false;
    gateway.on_request = [&](const seen_request &seen) {
        if (seen.type == FRM_GET_LOG) {
            second_came = true;
            return;
        }
        std::string bytes;
        for (uint32_t ret = 1; ret <= 5000; ++ret) {
            bytes += gateway_frame(0, FRM_DP_REPORT, {ret}, "");
        }
        gateway.send(bytes + gateway_frame(seen.number, seen.type, {0}, ""));
    };
    const client_owner client = open(options());
    // The second would start at byte 500 of the 512 that a gateway reads, so it goes out when the
    // first has been answered: then all reports have come.
    const uint32_t id = request(client, FRM_DEV_LIST, std::string(500 - 24, 'x'));
    request(client, FRM_GET_LOG);
    ASSERT_TRUE(loop.run_until([&] { return second_came; }, limit));
    uint64_t taken = 0;
    uint64_t dropped = 0;
    uint32_t last_report = 0;
    bool answered = false;
    while (const event_owner event{engr_client_next_event(client.get())}) {
        ++taken;
        dropped += event->dropped;
        answered = answered || (event->kind == ENGR_CLIENT_ANSWER && event->request == id);
        last_report = event->kind == ENGR_CLIENT_REPORT ? event->ret : last_report;
    }
    EXPECT_TRUE(answered);
    EXPECT_EQ(last_report, 5000u) << "the newest are kept";
    EXPECT_EQ(taken + dropped, 5002u) << "the connection, the reports, the answer";
    EXPECT_GE(dropped, 5000u - 4096u);
}

TEST_F(c_interface, requests_beyond_the_limit_are_refused_until_answers_are_taken) {
    const client_owner client = open(options());
    for (int made = 0; made < 4096; ++made) {
        request(client, FRM_DEV_LIST);
    }
    EXPECT_EQ(engr_client_request(client.get(), FRM_DEV_LIST, nullptr, 0, 0, nullptr),
              ENGR_CLIENT_QUEUE_FULL);
}

TEST_F(c_interface, may_be_closed_at_any_moment) {
    for (int steps = 0; steps < 20; ++steps) {
        const client_owner client = open(options());
        request(client, FRM_DEV_LIST);
        for (int step = 0; step < steps; ++step) {
            loop.run_until([] { return true; }, 0ms);
        }
    }
}

} // namespace
