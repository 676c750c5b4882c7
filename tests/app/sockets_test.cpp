// Connections and datagrams over real sockets of the loopback interface, and the loop below them.
#include "connection.h"
#include "fake_gateway.h"
#include "lan_client/event_loop.h"
#include "udp_socket.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace lan_client;
using namespace std::chrono_literals;

// A bound against hanging; nothing waits for it.
constexpr auto limit = 60s;

TEST(event_loop_test, hands_signals_to_the_latest_handler_and_lets_it_throw) {
    event_loop loop;
    std::string handled;
    loop.on_interrupt([&] { handled += "replaced "; });
    loop.on_interrupt([&] {
        handled += "signal ";
        throw std::runtime_error("interrupted");
    });
    for (const int signal : {SIGINT, SIGTERM, SIGINT}) {
        std::raise(signal);
        EXPECT_THROW(loop.run_until([] { return false; }, limit), std::runtime_error);
    }
    EXPECT_EQ(handled, "signal signal signal ");
}

TEST(event_loop_test, does_what_other_threads_post_and_ends_at_its_limit) {
    event_loop loop;
    EXPECT_FALSE(loop.run_until([] { return false; }, 0ms));
    EXPECT_TRUE(loop.run_until([] { return true; }, 0ms));
    const auto now = std::chrono::steady_clock::now();
    const auto is_later = [now] { return std::chrono::steady_clock::now() >= now + 5ms; };
    EXPECT_TRUE(loop.run_until(is_later, 5ms)) << "expected to be asked at the limit, too";
    bool done = false;
    std::thread other([&] { loop.post([&done] { done = true; }); });
    EXPECT_TRUE(loop.run_until([&done] { return done; }, limit));
    other.join();
}

TEST(event_loop_test, a_timer_that_is_stopped_or_started_anew_forgets_what_it_was_to_do) {
    event_loop loop;
    std::string done;
    timer renewed(loop);
    renewed.start(0ms, [&] { done += "old "; });
    renewed.start(0ms, [&] { done += "new "; });
    timer stopped(loop);
    stopped.start(0ms, [&] { done += "stopped "; });
    stopped.cancel();
    stopped.start(1h, [&] { done += "much too early "; });
    std::optional<timer> destroyed(std::in_place, loop);
    destroyed->start(0ms, [&] { done += "destroyed "; });
    destroyed.reset();
    // Its time has come already when it is stopped.
    timer late(loop);
    timer first(loop);
    first.start(0ms, [&] { late.cancel(); });
    late.start(0ms, [&] { done += "late "; });
    timer last(loop);
    last.start(1ms, [&] { done += "last"; });
    EXPECT_TRUE(loop.run_until([&] { return done.ends_with("last"); }, limit));
    EXPECT_EQ(done, "new last");
}

/** A connection, and what it tells. */
struct connection_test : testing::Test {
    std::string told;
    event_loop loop;
    connection link{loop,
                    {[this] { told += "connected "; },
                     [this](std::string_view bytes) {
                         told += "bytes " + std::string(bytes) + " ";
                         if (pauses) {
                             link.pause_reading();
                         }
                     },
                     [this](std::size_t count) { written += count; },
                     [this](const error &why) {
                         told += std::string(error_name(why.kind)) + ": " + why.detail + " ";
                     }}};
    std::size_t written = 0;
    bool pauses = false; // once it has been handed bytes

    std::string told_within(std::size_t bytes = 1) {
        EXPECT_TRUE(loop.run_until([&] { return told.size() >= bytes; }, limit)) << told;
        return told;
    }
};

TEST_F(connection_test, tells_why_it_can_not_be_made) {
    link.open({"gateway", 6668, "lo"}, limit);
    EXPECT_EQ(told, "") << "expected nothing to be told before the caller has returned";
    EXPECT_TRUE(told_within().starts_with("bad_address: ")) << told;

    told.clear();
    link.open({"127.0.0.1", 6668, "no-such-if"}, limit);
    EXPECT_EQ(told_within(), "no_interface: no-such-if: No such device ");

    told.clear();
    const uint16_t closed = fake_gateway(loop).port();
    link.open({"127.0.0.1", closed, "lo"}, limit);
    EXPECT_EQ(told_within(), "refused: Connection refused ");

    told.clear();
    link.open({"gateway", 6668, "lo"}, limit);
    link.close();
    link.open({"127.0.0.1", closed, "lo"}, limit);
    EXPECT_EQ(told_within(), "refused: Connection refused ")
        << "expected the attempt that was closed to be forgotten";
}

TEST_F(connection_test, gives_up_when_nobody_answers_the_attempt_to_connect) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *any = reinterpret_cast<sockaddr *>(&address);
    ASSERT_EQ(bind(listener, any, size), 0);
    ASSERT_EQ(listen(listener, 0), 0);
    ASSERT_EQ(getsockname(listener, any, &size), 0);
    // It has room for one connection that nobody accepts, and is silent to others.
    std::vector<int> fillers;
    for (int made = 0; made < 4; ++made) {
        fillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        connect(fillers.back(), any, size);
    }
    link.open({"127.0.0.1", ntohs(address.sin_port), "lo"}, 1ms);
    EXPECT_EQ(told_within(), "unreachable: no answer to the attempt to connect ");
    for (const int one : fillers) {
        close(one);
    }
    close(listener);
}

/** The socket of this process that is connected to a port; -1: none. */
int socket_to(uint16_t port) {
    for (int number = 3; number < 1024; ++number) {
        sockaddr_in peer{};
        socklen_t size = sizeof peer;
        if (getpeername(number, reinterpret_cast<sockaddr *>(&peer), &size) == 0 &&
            ntohs(peer.sin_port) == port) {
            return number;
        }
    }
    return -1;
}

TEST_F(connection_test, stays_on_its_interface_and_sends_short_frames_at_once) {
    fake_gateway gateway(loop);
    link.open({"127.0.0.1", gateway.port(), "lo"}, limit);
    EXPECT_EQ(told_within(), "connected ");
    const int socket = socket_to(gateway.port());
    ASSERT_NE(socket, -1);
    int no_delay = 0;
    socklen_t size = sizeof no_delay;
    EXPECT_EQ(getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size), 0);
    EXPECT_NE(no_delay, 0);
    std::string name(IFNAMSIZ, '\0');
    size = IFNAMSIZ;
    EXPECT_EQ(getsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, name.data(), &size), 0);
    EXPECT_STREQ(name.c_str(), "lo");
    link.close();
    EXPECT_EQ(socket_to(gateway.port()), -1) << "expected the socket to be closed";
}

TEST_F(connection_test, delivers_nothing_while_reading_pauses_and_tells_how_it_ended) {
    fake_gateway gateway(loop);
    std::string requests;
    gateway.on_request = [&](const seen_request &seen) { requests += seen.payload + " "; };
    link.open({"127.0.0.1", gateway.port(), ""}, limit);
    told_within();
    for (const char *payload : {"first", "second"}) {
        link.send(gateway_frame(1, 9, {}, payload));
    }
    EXPECT_TRUE(loop.run_until([&] { return requests == "first second "; }, limit));
    const std::size_t sent = 2 * 24 + std::string("firstsecond").size();
    EXPECT_TRUE(loop.run_until([&] { return written == sent; }, limit)) << written;
    told.clear();
    pauses = true;
    gateway.send("one");
    EXPECT_EQ(told_within(), "bytes one ");
    gateway.send("two");
    const int socket = socket_to(gateway.port());
    int waiting = 0;
    EXPECT_TRUE(loop.run_until(
        [&] {
            return (ioctl(socket, FIONREAD, &waiting) == 0 && waiting > 0) || told != "bytes one ";
        },
        limit));
    int turns = 0;
    loop.run_until(
        [&] {
            loop.post([] {});
            return ++turns == 100;
        },
        limit);
    EXPECT_EQ(told, "bytes one ");
    pauses = false;
    link.resume_reading();
    EXPECT_EQ(told_within(told.size() + 1), "bytes one bytes two ");
    told.clear();
    gateway.hang_up();
    EXPECT_EQ(told_within(), "connection_lost: the gateway closed it ");
}

/** Ports of this process alone, as far as possible, and none that the system gives away. */
uint16_t own_port(int number) {
    return static_cast<uint16_t>(10'000 + getpid() % 2'000 * 8 + number);
}

TEST(udp_test, tells_from_whom_and_on_which_interface_a_datagram_came) {
    event_loop loop;
    std::string got;
    udp_listener listener(loop, [&](std::string_view bytes, const datagram_source &from) {
        got = std::string(bytes) + " from " + from.address + " on " + from.interface_name;
    });
    const uint16_t port = own_port(0);
    ASSERT_FALSE(listener.open("", port));
    ASSERT_FALSE(send_datagram(loop, "lo", "127.0.0.1", port, "hello"));
    ASSERT_TRUE(loop.run_until([&] { return !got.empty(); }, limit));
    EXPECT_EQ(got, "hello from 127.0.0.1 on lo");
    got.clear();
    ASSERT_FALSE(send_datagram(loop, "", "127.0.0.1", port, ""));
    ASSERT_TRUE(loop.run_until([&] { return !got.empty(); }, limit));
    EXPECT_EQ(got, " from 127.0.0.1 on lo") << "expected an empty one to be told, too";
    const std::string longest(65'507, 'x');
    ASSERT_FALSE(send_datagram(loop, "lo", "127.0.0.1", port, longest));
    ASSERT_TRUE(loop.run_until([&] { return got.size() > longest.size(); }, limit));
}

TEST(udp_test, hands_a_broadcast_to_each_listener_until_it_is_destroyed) {
    event_loop loop;
    std::string got;
    const auto note = [&got](std::string_view bytes, const datagram_source &) { got += bytes; };
    const uint16_t port = own_port(1);
    udp_listener stays(loop, note);
    ASSERT_FALSE(stays.open("lo", port));
    std::optional<udp_listener> goes(std::in_place, loop, note);
    ASSERT_FALSE(goes->open("lo", port)) << "expected several to share a port";
    ASSERT_FALSE(send_datagram(loop, "lo", "255.255.255.255", port, "1"));
    ASSERT_TRUE(loop.run_until([&] { return got == "11"; }, limit)) << got;
    ASSERT_FALSE(send_datagram(loop, "lo", "255.255.255.255", port, "2"));
    goes.reset();
    ASSERT_FALSE(send_datagram(loop, "lo", "255.255.255.255", port, "3"));
    ASSERT_TRUE(loop.run_until([&] { return got.ends_with("3"); }, limit));
    EXPECT_EQ(got, "1123");
}

TEST(sockets_test, are_gone_with_what_they_call_once_they_are_closed) {
    event_loop loop;
    fake_gateway gateway(loop);
    const auto token = std::make_shared<int>();
    {
        udp_listener listener(loop, [token](std::string_view, const datagram_source &) {});
        ASSERT_FALSE(listener.open("lo", own_port(5)));
        connection link(loop, {[token] {}, {}, {}, {}});
        link.open({"127.0.0.1", gateway.port(), "lo"}, limit);
        EXPECT_TRUE(loop.run_until([&] { return gateway.connections == 1; }, limit));
        EXPECT_GT(token.use_count(), 1);
    }
    EXPECT_TRUE(loop.run_until([&] { return token.use_count() == 1; }, limit));
}

TEST(udp_test, says_what_can_not_be_opened_or_sent) {
    event_loop loop;
    udp_listener listener(loop, [](std::string_view, const datagram_source &) {});
    EXPECT_EQ(listener.open("no-such-if", own_port(2)).kind, error_kind::no_interface);

    const int taken = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(own_port(3));
    ASSERT_EQ(bind(taken, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    udp_listener second(loop, [](std::string_view, const datagram_source &) {});
    const error problem = second.open("", own_port(3));
    EXPECT_EQ(problem.kind, error_kind::unreachable);
    EXPECT_EQ(problem.detail,
              "UDP port " + std::to_string(own_port(3)) + ": Address already in use");
    close(taken);

    EXPECT_EQ(send_datagram(loop, "lo", "gateway", 1, "x").kind, error_kind::bad_address);
    EXPECT_EQ(send_datagram(loop, "lo", "gateway", 1, "x").detail, "gateway");
    EXPECT_EQ(send_datagram(loop, "no-such-if", "127.0.0.1", 1, "x").kind,
              error_kind::no_interface);
    const error too_long =
        send_datagram(loop, "lo", "127.0.0.1", own_port(4), std::string(70'000, 'x'));
    EXPECT_EQ(too_long.kind, error_kind::unreachable);
    EXPECT_EQ(too_long.detail, "Message too long");
}

} // namespace
