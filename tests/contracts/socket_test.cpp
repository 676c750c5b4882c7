// Contract of sockets and select.
#include "contract_test.h"

#include <algorithm>
#include <array>
#include <set>
#include <vector>

namespace contract_tests {

namespace {

constexpr size_t a_frame = 2 * 1024 * 1024;

/** A connection between the port and a peer, with the listening socket that it came from. */
struct connection {
    descriptor listening;
    std::unique_ptr<stream_peer> peer;
    descriptor socket;
};

class socket_contract : public contract_test {
  protected:
    descriptor listen_on(uint16_t number) {
        descriptor listening(kelo_hal_net_socket_create(KELO_SOCKET_TCP));
        EXPECT_EQ(kelo_hal_net_set_bufsize(listening, 0x20000, KELO_BUFFER_SEND), 0);
        EXPECT_EQ(kelo_hal_net_set_reuse(listening), 0);
        EXPECT_EQ(kelo_hal_net_bind(listening, KELO_ADDRESS_ANY, number), 0);
        EXPECT_EQ(kelo_hal_net_set_cloexec(listening), 0);
        EXPECT_EQ(kelo_hal_net_listen(listening, 5), 0);
        return listening;
    }

    connection connect() {
        const uint16_t number = port->free_port();
        descriptor listening = listen_on(number);
        auto peer = port->connect(number);
        EXPECT_NE(peer, nullptr);
        descriptor socket(kelo_hal_net_accept(listening, nullptr, nullptr));
        return {std::move(listening), std::move(peer), std::move(socket)};
    }

    descriptor open_udp(uint16_t number) {
        descriptor socket(kelo_hal_net_socket_create(KELO_SOCKET_UDP));
        EXPECT_EQ(kelo_hal_net_bind(socket, KELO_ADDRESS_ANY, number), 0);
        return socket;
    }
};

kelo_fd_set_t set_of(std::initializer_list<int32_t> descriptors) {
    kelo_fd_set_t set;
    kelo_hal_net_fd_zero(&set);
    for (const int32_t number : descriptors) {
        kelo_hal_net_fd_set(number, &set);
    }
    return set;
}

int32_t select_readable(int32_t socket, uint32_t milliseconds) {
    kelo_fd_set_t set = set_of({socket});
    return kelo_hal_net_select(socket + 1, &set, nullptr, nullptr, milliseconds);
}

int32_t send_text(int32_t socket, std::string_view text) {
    return kelo_hal_net_send(socket, text.data(), static_cast<uint32_t>(text.size()));
}

} // namespace

TEST_F(socket_contract, a_set_takes_each_descriptor_once_and_none_below_zero) {
    kelo_fd_set_t set = set_of({7, 7, -1});
    EXPECT_EQ(set.count, 1u);
    EXPECT_EQ(kelo_hal_net_fd_isset(7, &set), 1);
    EXPECT_EQ(kelo_hal_net_fd_isset(-1, &set), 0);
    for (int32_t number = 100; number < 100 + 2 * KELO_FD_SET_CAPACITY; number++) {
        kelo_hal_net_fd_set(number, &set);
    }
    EXPECT_EQ(set.count, uint32_t{KELO_FD_SET_CAPACITY});
}

TEST_F(socket_contract, select_leaves_the_ready_descriptors_in_the_sets) {
    port->run([&] {
        const connection first = connect();
        const connection second = connect();
        const int32_t top = std::max<int32_t>(first.socket, second.socket) + 1;
        EXPECT_EQ(select_readable(first.socket, 1), 0) << "nothing was sent yet";

        ASSERT_TRUE(second.peer->send("x"));
        kelo_fd_set_t readable = set_of({first.listening, first.socket, second.socket});
        kelo_fd_set_t exceptional = readable;
        EXPECT_EQ(kelo_hal_net_select(top, &readable, nullptr, &exceptional, an_hour_ms), 1);
        EXPECT_EQ(readable.count, 1u);
        EXPECT_EQ(kelo_hal_net_fd_isset(second.socket, &readable), 1);
        EXPECT_EQ(exceptional.count, 0u);

        kelo_fd_set_t writable = set_of({first.socket});
        EXPECT_EQ(kelo_hal_net_select(top, nullptr, &writable, nullptr, an_hour_ms), 1);
        EXPECT_EQ(kelo_hal_net_fd_isset(first.socket, &writable), 1);

        first.peer->close();
        EXPECT_EQ(select_readable(first.socket, an_hour_ms), 1)
            << "the end of the stream is readable";
        kelo_fd_set_t above = set_of({second.socket});
        EXPECT_EQ(kelo_hal_net_select(second.socket, &above, nullptr, nullptr, 1), 0)
            << "descriptors from the count up are not watched";
    });
}

TEST_F(socket_contract, select_with_an_unknown_descriptor_fails_and_leaves_the_sets) {
    port->run([&] {
        connection one = connect();
        kelo_fd_set_t set = set_of({one.listening, one.socket});
        const int32_t top = one.socket + 1;
        one.socket.close();
        EXPECT_LT(kelo_hal_net_select(top, &set, nullptr, nullptr, an_hour_ms), 0);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_BAD_SOCKET);
        EXPECT_EQ(set.count, 2u);
        EXPECT_LT(select_readable(0x7FFFFFFE, an_hour_ms), 0);
    });
}

TEST_F(socket_contract, waits_end_at_once_on_close_and_on_stop) {
    port->run([&] {
        std::vector<char> frame(stream_peer::stream_capacity_bytes);
        char byte;
        const auto select = [&](int32_t socket) { return select_readable(socket, an_hour_ms); };
        const auto receive = [&](int32_t socket) { return kelo_hal_net_recv(socket, &byte, 1); };
        const auto accept = [&](int32_t socket) {
            return kelo_hal_net_accept(socket, nullptr, nullptr);
        };
        const auto receive_from = [&](int32_t socket) {
            return kelo_hal_net_recvfrom(socket, &byte, 1, nullptr, nullptr);
        };
        const auto send = [&](int32_t socket) {
            return kelo_hal_net_send(socket, frame.data(), static_cast<uint32_t>(frame.size()));
        };
        struct waiting_case {
            const char *name;
            std::function<int32_t(int32_t)> wait;
            enum { connected, listening, datagram } kind;
        };
        const waiting_case cases[] = {
            {"select", select, waiting_case::connected},
            {"select on a listener", select, waiting_case::listening},
            {"select on UDP", select, waiting_case::datagram},
            {"recv", receive, waiting_case::connected},
            {"accept", accept, waiting_case::listening},
            {"recvfrom", receive_from, waiting_case::datagram},
            {"send", send, waiting_case::connected},
        };
        for (const waiting_case &one : cases) {
            for (const bool by_close : {true, false}) {
                SCOPED_TRACE(std::string(one.name) + (by_close ? ", close" : ", stop"));
                connection tcp = connect();
                descriptor udp = open_udp(port->free_port());
                descriptor &socket = one.kind == waiting_case::connected   ? tcp.socket
                                     : one.kind == waiting_case::listening ? tcp.listening
                                                                           : udp;
                std::atomic<bool> waiting{false};
                int32_t result = 1;
                int32_t code = 0;
                port_thread thread([&, number = int32_t{socket}] {
                    waiting = true;
                    result = one.wait(number);
                    code = kelo_hal_net_get_errno();
                });
                EXPECT_TRUE(wait_until([&] { return waiting.load(); }));
                by_close ? socket.close() : thread.stop();
                ASSERT_TRUE(wait_until([&] { return thread.ended.load(); })) << "still waiting";
                EXPECT_LT(result, 0);
                EXPECT_EQ(code, by_close ? KELO_ERR_BAD_SOCKET : KELO_ERR_STOPPED);
            }
        }
    });
}

TEST_F(socket_contract, a_receive_tells_waiting_and_the_end_of_the_stream_apart) {
    port->run([&] {
        const connection one = connect();
        char buffer[16];
        EXPECT_EQ(kelo_hal_net_set_block(one.socket, false), 0);
        EXPECT_LT(kelo_hal_net_recv(one.socket, buffer, sizeof buffer), 0);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_WOULD_BLOCK);

        ASSERT_TRUE(one.peer->send("last"));
        one.peer->close();
        EXPECT_EQ(kelo_hal_net_set_block(one.socket, true), 0);
        EXPECT_EQ(kelo_hal_net_recv(one.socket, buffer, sizeof buffer), 4);
        EXPECT_EQ(kelo_hal_net_recv(one.socket, buffer, sizeof buffer), 0);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_PEER_CLOSED);
    });
}

TEST_F(socket_contract, a_receive_on_a_reset_connection_fails_for_good) {
    port->run([&] {
        const connection one = connect();
        char byte;
        one.peer->reset();
        EXPECT_LE(kelo_hal_net_recv(one.socket, &byte, 1), 0);
        const int32_t code = kelo_hal_net_get_errno();
        const std::set<int32_t> transient{KELO_ERR_INTERRUPTED, KELO_ERR_WOULD_BLOCK,
                                          KELO_ERR_TRY_AGAIN};
        EXPECT_LT(code, 0);
        EXPECT_FALSE(transient.contains(code)) << "code " << code;
    });
}

TEST_F(socket_contract, the_error_code_belongs_to_the_thread) {
    port->run([&] {
        char byte;
        EXPECT_LT(kelo_hal_net_recv(0x7FFFFFFE, &byte, 1), 0);
        port_thread other([&] {
            const connection one = connect();
            kelo_hal_net_set_block(one.socket, false);
            EXPECT_LT(kelo_hal_net_recv(one.socket, &byte, 1), 0);
            EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_WOULD_BLOCK);
        });
        EXPECT_TRUE(wait_until([&] { return other.ended.load(); }));
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_BAD_SOCKET);
    });
}

TEST_F(socket_contract, a_large_send_reaches_a_slow_reader_whole) {
    port->run([&] {
        const connection one = connect();
        EXPECT_EQ(kelo_hal_net_set_block(one.socket, false), 0);
        std::string frame(a_frame, '\0');
        for (size_t i = 0; i < frame.size(); i++) {
            frame[i] = static_cast<char>(i * 31 >> 8);
        }
        int32_t sent = 0;
        port_thread sender([&] { sent = send_text(one.socket, frame); });
        std::string received;
        while (received.size() < frame.size()) {
            const std::string part =
                one.peer->receive(std::min<size_t>(65536, frame.size() - received.size()));
            ASSERT_FALSE(part.empty()) << "the stream ended after " << received.size() << " bytes";
            received += part;
            kelo_hal_system_sleep(1);
        }
        EXPECT_TRUE(wait_until([&] { return sender.ended.load(); }));
        EXPECT_EQ(sent, static_cast<int32_t>(frame.size()));
        EXPECT_TRUE(received == frame);
    });
}

TEST_F(socket_contract,
       sends_to_a_peer_that_does_not_read_fail_after_a_bounded_wait_and_never_mix) {
    port->run([&] {
        const connection one = connect();
        const uint64_t start = port->now_ms();
        std::array<int32_t, 2> codes{};
        const auto send = [&](char letter, int32_t &code) {
            const std::string frame(stream_peer::stream_capacity_bytes, letter);
            EXPECT_NE(send_text(one.socket, frame), static_cast<int32_t>(frame.size()));
            code = kelo_hal_net_get_errno();
        };
        port_thread first([&] { send('a', codes[0]); });
        port_thread second([&] { send('b', codes[1]); });
        ASSERT_TRUE(wait_until([&] { return first.ended && second.ended; }));
        EXPECT_GE(port->now_ms() - start, 2000u);
        EXPECT_GT(std::count(codes.begin(), codes.end(), KELO_ERR_TIMED_OUT), 0)
            << codes[0] << ", " << codes[1];

        EXPECT_EQ(kelo_hal_net_shutdown(one.socket), 0);
        const std::string received = one.peer->receive(2 * stream_peer::stream_capacity_bytes);
        ASSERT_FALSE(received.empty());
        EXPECT_EQ(received.find_first_not_of(received[0]), std::string::npos)
            << "bytes of one frame inside the other";
    });
}

TEST_F(socket_contract, a_send_lasts_as_long_as_its_reader_keeps_the_least_rate_and_no_longer) {
    struct reader_case {
        const char *name;
        uint32_t pause_ms; /**< between two parts of 16 KiB */
        bool is_fast_enough;
    };
    constexpr size_t part = 16 * 1024;
    constexpr size_t parts_max = 24;
    for (const reader_case one : {reader_case{"128 KiB/s", 125, true}, {"48 KiB/s", 340, false}}) {
        SCOPED_TRACE(one.name);
        port->run([&] {
            const connection with = connect();
            const std::string frame(stream_peer::stream_capacity_bytes, 'x');
            int32_t sent = 0;
            int32_t code = 0;
            port_thread sender([&] {
                sent = send_text(with.socket, frame);
                code = kelo_hal_net_get_errno();
            });
            size_t received = 0;
            for (size_t i = 0; i < parts_max && !sender.ended; ++i) {
                received += with.peer->receive(part).size();
                kelo_hal_system_sleep(one.pause_ms);
            }
            if (one.is_fast_enough) {
                EXPECT_FALSE(sender.ended) << "given up after " << received << " bytes";
                received += with.peer->receive(frame.size() - received).size();
                EXPECT_EQ(received, frame.size());
                EXPECT_TRUE(wait_until([&] { return sender.ended.load(); }));
                EXPECT_EQ(sent, static_cast<int32_t>(frame.size()));
            } else {
                ASSERT_TRUE(sender.ended) << "still sending though the peer reads too slowly";
                EXPECT_NE(sent, static_cast<int32_t>(frame.size()));
                EXPECT_EQ(code, KELO_ERR_TIMED_OUT);
                EXPECT_LT(send_text(with.socket, "x"), 1) << "the stream is torn inside a frame";
            }
        });
    }
}

TEST_F(socket_contract, sends_of_several_threads_never_interleave) {
    port->run([&] {
        constexpr size_t frame_size = 300'000;
        constexpr size_t frames_a_thread = 5;
        const connection one = connect();
        const auto send = [&](char letter) {
            const std::string frame(frame_size, letter);
            for (size_t i = 0; i < frames_a_thread; i++) {
                EXPECT_EQ(send_text(one.socket, frame), static_cast<int32_t>(frame_size));
            }
        };
        port_thread first([&] { send('a'); });
        port_thread second([&] { send('b'); });
        port_thread third([&] { send('c'); });
        for (size_t i = 0; i < 3 * frames_a_thread; i++) {
            const std::string frame = one.peer->receive(frame_size);
            ASSERT_EQ(frame.size(), frame_size);
            EXPECT_EQ(frame.find_first_not_of(frame[0]), std::string::npos) << "frame " << i;
        }
        EXPECT_TRUE(wait_until([&] { return first.ended && second.ended && third.ended; }));
    });
}

TEST_F(socket_contract, shutdown_ends_sends_at_once_and_keeps_what_was_accepted) {
    port->run([&] {
        const connection one = connect();
        ASSERT_EQ(send_text(one.socket, "accepted"), 8);
        std::atomic<int> failed{0};
        const auto send_too_much = [&] {
            const std::string frame(stream_peer::stream_capacity_bytes, 'x');
            EXPECT_NE(send_text(one.socket, frame), static_cast<int32_t>(frame.size()));
            EXPECT_NE(kelo_hal_net_get_errno(), KELO_ERR_TIMED_OUT);
            failed++;
        };
        port_thread holder(send_too_much);
        port_thread waiter(send_too_much);
        EXPECT_EQ(one.peer->receive(9), "acceptedx");
        EXPECT_EQ(kelo_hal_net_shutdown(one.socket), 0);
        EXPECT_TRUE(wait_until([&] { return failed == 2; }));
        EXPECT_NE(send_text(one.socket, "late"), 4);

        ASSERT_TRUE(one.peer->send("still heard"));
        char buffer[32];
        EXPECT_EQ(kelo_hal_net_recv(one.socket, buffer, sizeof buffer), 11);
        EXPECT_TRUE(one.peer->wait_for_end());
    });
}

TEST_F(socket_contract, a_descriptor_number_never_comes_back) {
    port->run([&] {
        std::set<int32_t> numbers;
        for (int i = 0; i < 100; i++) {
            const descriptor socket(kelo_hal_net_socket_create(i % 2));
            EXPECT_TRUE(numbers.insert(socket).second) << "number " << socket << " came back";
        }
        const int32_t old = *numbers.begin();
        EXPECT_LT(send_text(old, "x"), 0);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_BAD_SOCKET);
        EXPECT_LT(kelo_hal_net_close(old), 0);
    });
}

TEST_F(socket_contract, accept_tells_the_peer_and_closing_the_socket_ends_its_stream) {
    port->run([&] {
        const uint16_t number = port->free_port();
        const descriptor listening = listen_on(number);
        EXPECT_EQ(kelo_hal_net_set_block(listening, false), 0);
        EXPECT_LE(kelo_hal_net_accept(listening, nullptr, nullptr), 0);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_WOULD_BLOCK);
        const auto peer = port->connect(number);
        ASSERT_NE(peer, nullptr);
        ASSERT_EQ(select_readable(listening, an_hour_ms), 1);
        uint32_t address = 0;
        uint16_t peer_port = 0;
        descriptor socket(kelo_hal_net_accept(listening, &address, &peer_port));
        EXPECT_NE(address, 0u);
        EXPECT_NE(peer_port, 0u);
        EXPECT_EQ(kelo_hal_net_set_keepalive(socket, true, 30, 5, 1), 0);
        socket.close();
        EXPECT_TRUE(peer->wait_for_end());
    });
}

TEST_F(socket_contract, wrong_uses_fail) {
    port->run([&] {
        const uint16_t number = port->free_port();
        const descriptor listening = listen_on(number);
        const descriptor other(kelo_hal_net_socket_create(KELO_SOCKET_TCP));
        EXPECT_LT(kelo_hal_net_bind(other, KELO_ADDRESS_ANY, number), 0) << "the port is taken";
        EXPECT_LT(kelo_hal_net_get_errno(), 0);
        EXPECT_LT(kelo_hal_net_set_bufsize(other, 4096, KELO_BUFFER_SEND + 1), 0);
        EXPECT_LT(kelo_hal_net_socket_bind(other, "no address"), 0);
        EXPECT_LT(kelo_hal_net_socket_create(2), 0);
        EXPECT_LT(kelo_hal_net_set_reuse(0x7FFFFFFE), 0);
        char byte;
        EXPECT_LT(kelo_hal_net_recvfrom(listening, &byte, 1, nullptr, nullptr), 0) << "no UDP";
        EXPECT_EQ(port->connect(port->free_port()), nullptr) << "nobody listens there";
    });
}

TEST_F(socket_contract, empty_datagrams_are_dropped) {
    port->run([&] {
        const uint16_t number = port->free_port();
        const descriptor socket = open_udp(number);
        const auto peer = port->open_datagram_peer();
        char buffer[8];
        const auto receive = [&] {
            return kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, nullptr, nullptr);
        };
        for (const std::string_view bytes : {"", "", "last"}) {
            ASSERT_TRUE(peer->send_to(port->address(), number, bytes));
        }
        EXPECT_EQ(receive(), 4) << "expected the one that is not empty";
        ASSERT_TRUE(peer->send_to(port->address(), number, ""));
        EXPECT_EQ(kelo_hal_net_set_block(socket, false), 0);
        EXPECT_LT(receive(), 0);
        EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_WOULD_BLOCK);
    });
}

TEST_F(socket_contract, datagrams_travel_both_ways_and_by_broadcast) {
    port->run([&] {
        const uint16_t number = port->free_port();
        const descriptor socket = open_udp(number);
        const auto peer = port->open_datagram_peer();
        for (const uint32_t to : {port->address(), KELO_ADDRESS_BROADCAST}) {
            ASSERT_TRUE(peer->send_to(to, number, "configuration"));
            ASSERT_EQ(select_readable(socket, an_hour_ms), 1);
            char buffer[6];
            uint16_t from = 0;
            EXPECT_EQ(kelo_hal_net_recvfrom(socket, buffer, sizeof buffer, nullptr, &from), 6)
                << "what does not fit is cut off";
            EXPECT_EQ(std::string_view(buffer, 6), "config");
            EXPECT_EQ(from, peer->port());
        }
        const descriptor sender(kelo_hal_net_socket_create(KELO_SOCKET_UDP));
        EXPECT_EQ(kelo_hal_net_set_boardcast(sender), 0);
        for (const uint32_t to : {peer->address(), KELO_ADDRESS_BROADCAST}) {
            EXPECT_EQ(kelo_hal_net_send_to(sender, "found", 5, to, peer->port()), 5);
            const auto received = peer->receive();
            ASSERT_TRUE(received.has_value());
            EXPECT_EQ(received->bytes, "found");
            EXPECT_EQ(received->address, port->address());
        }
    });
}

} // namespace contract_tests
