// The network beyond what the contract tests show: what tests can make it do.
#include "sim/testing.h"

#include "platform/clock.h"
#include "platform/socket.h"

#include <gmock/gmock.h>

#include <set>

namespace {

/** A world with one connection, the gateway's end of which does not block. */
struct network : sim::test {
    network() {
        listener = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
        kelo_hal_net_bind(listener, KELO_ADDRESS_ANY, 4000);
        kelo_hal_net_listen(listener, 5);
        app = world.connect(4000);
        server = kelo_hal_net_accept(listener, nullptr, nullptr);
        kelo_hal_net_set_block(server, false);
    }
    ~network() override {
        kelo_hal_net_close(server);
        kelo_hal_net_close(listener);
    }

    std::string receive(size_t count = 100) {
        std::string bytes(count, '\0');
        const int32_t received =
            kelo_hal_net_recv(server, bytes.data(), static_cast<uint32_t>(count));
        return received < 0 ? "error " + std::to_string(kelo_hal_net_get_errno())
                            : bytes.substr(0, static_cast<size_t>(received));
    }
    int32_t send(const std::string &bytes) {
        return kelo_hal_net_send(server, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }

    int32_t listener = 0;
    int32_t server = 0;
    sim::peer app;
};

} // namespace

TEST_F(network, streams_are_cut_at_given_or_random_places) {
    app.send("abcdef");
    EXPECT_EQ(receive(), "abcdef");
    app.send("abc");
    app.cut();
    app.send("def");
    EXPECT_EQ(receive(), "abc");
    EXPECT_EQ(receive(), "def");
    app.link().short_read_odds = 1;
    std::set<size_t> lengths;
    for (int round = 0; round < 100; ++round) {
        app.send("abcdef");
        for (size_t left = 6; left != 0;) {
            const std::string part = receive();
            lengths.insert(part.size());
            left -= part.size();
        }
    }
    EXPECT_EQ(lengths, (std::set<size_t>{1, 2, 3, 4, 5, 6}));
}

TEST_F(network, a_delayed_stream_arrives_later_and_in_order) {
    app.link().delay_ms_min = 10;
    app.link().delay_ms_max = 30;
    app.send("abc");
    app.send("def");
    app.close_sending();
    EXPECT_EQ(receive(), "error " + std::to_string(KELO_ERR_WOULD_BLOCK));
    world.run_for(30);
    EXPECT_EQ(receive(), "abcdef");
    EXPECT_EQ(receive(), "");
    EXPECT_EQ(send("still"), 5);
    EXPECT_EQ(app.receive(5), "still");
}

TEST_F(network, a_send_waits_2_s_and_a_second_for_each_64_kib_that_the_reader_takes) {
    constexpr size_t capacity = 256 * 1024;
    const std::string large(4 * capacity, 'x');
    app.link().to_peer_bytes_max = capacity;
    app.read_slowly(120'000, 1'800);
    EXPECT_EQ(send(large), static_cast<int32_t>(large.size())) << "expected the rate to be enough";
    EXPECT_EQ(app.receive(large.size()), large);

    app.read_slowly(64 * 1024, 1'500);
    const uint64_t begin = world.now_ms();
    EXPECT_LE(send(large), 0);
    EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_TIMED_OUT);
    // What is left of the 2 s: 0.5 and 1 more at 1.5 s, 0 and 1 more at 3 s, nothing at 4 s.
    EXPECT_EQ(world.now_ms() - begin, 4000U);
    EXPECT_LE(send("x"), 0) << "the stream is torn inside a frame";
}

TEST_F(network, two_senders_to_one_full_connection_do_not_mix) {
    app.link().to_peer_bytes_max = 8;
    app.read_slowly(3, 5);
    sim::test_thread one =
        world.spawn("one", [this] { EXPECT_EQ(send(std::string(30, 'a')), 30); });
    sim::test_thread other =
        world.spawn("other", [this] { EXPECT_EQ(send(std::string(30, 'b')), 30); });
    const std::string received = app.receive(60);
    EXPECT_TRUE(received == std::string(30, 'a') + std::string(30, 'b') ||
                received == std::string(30, 'b') + std::string(30, 'a'))
        << received;
}

TEST_F(network, keep_alive_notices_a_vanished_peer) {
    kelo_hal_net_set_keepalive(server, true, 30, 5, 1);
    app.vanish();
    world.run_for(34'999);
    EXPECT_EQ(receive(), "error " + std::to_string(KELO_ERR_WOULD_BLOCK));
    world.run_for(1);
    EXPECT_NE(receive(), "error " + std::to_string(KELO_ERR_WOULD_BLOCK));
}

TEST_F(network, a_send_to_a_closed_peer_is_lost_and_the_next_one_fails) {
    app.close();
    EXPECT_EQ(send("lost"), 4);
    EXPECT_LE(send("more"), 0);
}

TEST_F(network, exceptions_are_reported_by_select) {
    kelo_fd_set_t set;
    kelo_hal_net_fd_zero(&set);
    kelo_hal_net_fd_set(listener, &set);
    kelo_hal_net_fd_set(server, &set);
    const kelo_fd_set_t both = set;
    app.send_urgent();
    EXPECT_EQ(kelo_hal_net_select(server + 1, nullptr, nullptr, &set, 0), 1);
    EXPECT_EQ(kelo_hal_net_fd_isset(server, &set), 1);
    set = both;
    world.break_listener(4000);
    EXPECT_EQ(kelo_hal_net_select(server + 1, nullptr, nullptr, &set, 0), 2);
}

TEST_F(network, partial_transfers_are_faults_too) {
    world.fail("kelo_hal_net_recv", sim::nth(1), {.partial_bytes = 2});
    world.fail("kelo_hal_net_send", sim::nth(1), {.partial_bytes = 3});
    app.send("abcdef");
    EXPECT_EQ(receive(), "ab");
    EXPECT_EQ(send("abcdef"), 3);
    EXPECT_EQ(app.receive(3), "abc");
}

TEST(datagrams, are_lost_duplicated_and_reordered) {
    sim::world world;
    sim::udp_peer listener = world.open_udp(6667);
    const int32_t sender = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    const auto send = [sender](char byte) {
        return kelo_hal_net_send_to(sender, &byte, 1, KELO_ADDRESS_BROADCAST, 6667);
    };
    EXPECT_LT(send('x'), 0) << "broadcasts are not allowed yet";
    kelo_hal_net_set_boardcast(sender);
    world.datagrams() = {
        .loss_odds = 0.2, .duplicate_odds = 0.2, .delay_ms_min = 0, .delay_ms_max = 50};
    std::string sent;
    for (char byte = '0'; byte < 'z'; ++byte) {
        EXPECT_EQ(send(byte), 1);
        sent += byte;
    }
    std::string received;
    while (const auto datagram = listener.receive(1000)) {
        received += datagram->bytes;
    }
    const std::set<char> distinct(received.begin(), received.end());
    EXPECT_LT(distinct.size(), sent.size());
    EXPECT_GT(received.size(), distinct.size());
    EXPECT_FALSE(std::is_sorted(received.begin(), received.end()));
    kelo_hal_net_close(sender);
    EXPECT_EQ(world.finish(), std::vector<std::string>());
}
