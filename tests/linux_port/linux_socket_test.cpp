// Single calls on sockets of the Linux port: what they set in the system, and what they look at.
#include "descriptor_table.h"
#include "linux_port/port.h"
#include "platform/socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <tuple>
#include <vector>

namespace {

constexpr uint32_t loopback = 0x7F000001;

class linux_socket : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(linux_port::configure_network({"lo", ""})); }
    void TearDown() override {
        for (const int32_t socket : made) {
            kelo_hal_net_close(socket);
        }
        (void)linux_port::configure_network({});
    }

    int32_t make(int32_t kind) {
        made.push_back(kelo_hal_net_socket_create(kind));
        EXPECT_GT(made.back(), 0);
        return made.back();
    }

    /** A UDP socket that has a datagram to be read. */
    int32_t make_readable() {
        const int32_t socket = make(KELO_SOCKET_UDP);
        EXPECT_EQ(kelo_hal_net_bind(socket, loopback, 0), 0);
        EXPECT_EQ(kelo_hal_net_send_to(socket, "x", 1, loopback, port_of(socket)), 1);
        return socket;
    }

    static int system_fd(int32_t socket) { return linux_port::find_socket(socket)->fd; }

    static uint16_t port_of(int32_t socket) {
        sockaddr_in local{};
        socklen_t size = sizeof local;
        getsockname(system_fd(socket), reinterpret_cast<sockaddr *>(&local), &size);
        return ntohs(local.sin_port);
    }

    static int option_of(int32_t socket, int level, int option) {
        int value = -1;
        socklen_t size = sizeof value;
        getsockopt(system_fd(socket), level, option, &value, &size);
        return value;
    }

    std::vector<int32_t> made;
};

} // namespace

TEST_F(linux_socket, select_looks_at_no_more_than_the_members_of_a_set) {
    const int32_t readable = make_readable();
    const int32_t hung_up = make(KELO_SOCKET_TCP); // as one that was never connected
    kelo_fd_set_t read_set;
    kelo_fd_set_t write_set;
    kelo_hal_net_fd_zero(&read_set);
    kelo_hal_net_fd_zero(&write_set);
    kelo_hal_net_fd_set(readable, &read_set);
    kelo_hal_net_fd_set(hung_up, &write_set);
    write_set.descriptors[1] = INT32_MAX - 7; // left behind by a socket that is closed
    read_set.descriptors[1] = hung_up;
    EXPECT_EQ(kelo_hal_net_select(INT32_MAX, &read_set, &write_set, nullptr, 0), 2);
    EXPECT_EQ(read_set.count, 1U);
    EXPECT_EQ(read_set.descriptors[0], readable);
    EXPECT_EQ(write_set.count, 1U);
    EXPECT_EQ(write_set.descriptors[0], hung_up);
}

TEST_F(linux_socket, select_leaves_out_descriptors_from_the_count_on) {
    const int32_t readable = make_readable();
    for (const int32_t more : {0, 1}) {
        kelo_fd_set_t read_set;
        kelo_hal_net_fd_zero(&read_set);
        kelo_hal_net_fd_set(readable, &read_set);
        EXPECT_EQ(kelo_hal_net_select(readable + more, &read_set, nullptr, nullptr, 0), more);
        EXPECT_EQ(read_set.count, static_cast<uint32_t>(more));
    }
}

TEST_F(linux_socket, options_reach_the_system) {
    const int32_t tcp = make(KELO_SOCKET_TCP);
    EXPECT_EQ(kelo_hal_net_set_keepalive(tcp, true, 77, 7, 5), 0);
    EXPECT_EQ(option_of(tcp, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option_of(tcp, IPPROTO_TCP, TCP_KEEPIDLE), 77);
    EXPECT_EQ(option_of(tcp, IPPROTO_TCP, TCP_KEEPINTVL), 7);
    EXPECT_EQ(option_of(tcp, IPPROTO_TCP, TCP_KEEPCNT), 5);
    EXPECT_EQ(kelo_hal_net_set_keepalive(tcp, false, 0, 0, 0), 0);
    EXPECT_EQ(option_of(tcp, SOL_SOCKET, SO_KEEPALIVE), 0);
    EXPECT_EQ(option_of(tcp, IPPROTO_TCP, TCP_KEEPIDLE), 77);
    for (const auto &[idle, interval, count] :
         {std::tuple{UINT32_MAX, 7U, 5U}, {77U, UINT32_MAX, 5U}, {77U, 7U, UINT32_MAX}}) {
        EXPECT_EQ(kelo_hal_net_set_keepalive(tcp, true, idle, interval, count), -1);
        EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EINVAL);
    }
    EXPECT_EQ(option_of(tcp, SOL_SOCKET, SO_REUSEADDR), 0);
    EXPECT_EQ(kelo_hal_net_set_reuse(tcp), 0);
    EXPECT_EQ(option_of(tcp, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(kelo_hal_net_set_bufsize(tcp, 5000, KELO_BUFFER_SEND), 0);
    EXPECT_EQ(option_of(tcp, SOL_SOCKET, SO_SNDBUF), 10'000) << "the system counts double";
    EXPECT_EQ(kelo_hal_net_set_bufsize(tcp, 5000, KELO_BUFFER_SEND + 1), -1);
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EINVAL);
    const int32_t udp = make(KELO_SOCKET_UDP);
    EXPECT_EQ(option_of(udp, SOL_SOCKET, SO_BROADCAST), 0);
    EXPECT_EQ(kelo_hal_net_set_boardcast(udp), 0);
    EXPECT_EQ(option_of(udp, SOL_SOCKET, SO_BROADCAST), 1);
}

TEST_F(linux_socket, every_call_fails_alike_on_a_number_that_is_no_socket) {
    const int32_t none = INT32_MAX - 7;
    const int32_t results[] = {kelo_hal_net_close(none),
                               kelo_hal_net_shutdown(none),
                               kelo_hal_net_bind(none, loopback, 0),
                               kelo_hal_net_socket_bind(none, "127.0.0.1"),
                               kelo_hal_net_listen(none, 1),
                               kelo_hal_net_accept(none, nullptr, nullptr),
                               kelo_hal_net_recv(none, nullptr, 0),
                               kelo_hal_net_recvfrom(none, nullptr, 0, nullptr, nullptr),
                               kelo_hal_net_send(none, "x", 1),
                               kelo_hal_net_send_to(none, "x", 1, loopback, 1),
                               kelo_hal_net_set_bufsize(none, 5000, KELO_BUFFER_SEND),
                               kelo_hal_net_set_reuse(none),
                               kelo_hal_net_set_cloexec(none),
                               kelo_hal_net_set_boardcast(none),
                               kelo_hal_net_set_block(none, true),
                               kelo_hal_net_set_keepalive(none, true, 1, 1, 1)};
    for (const int32_t result : results) {
        EXPECT_EQ(result, -1) << "call number " << &result - results;
    }
    const int32_t tcp = make(KELO_SOCKET_TCP);
    EXPECT_EQ(kelo_hal_net_recvfrom(tcp, nullptr, 0, nullptr, nullptr), -1);
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EINVAL) << "expected a connection to be refused";
    EXPECT_EQ(kelo_hal_net_set_block(none, true), -1);
    EXPECT_EQ(kelo_hal_net_get_errno(), KELO_ERR_BAD_SOCKET);
    EXPECT_EQ(kelo_hal_net_socket_bind(tcp, "127.0.0"), -1);
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EINVAL);
    EXPECT_EQ(kelo_hal_net_socket_bind(tcp, nullptr), -1);
    EXPECT_EQ(kelo_hal_net_socket_bind(tcp, "127.0.0.1"), 0);
}

TEST(linux_error, has_a_name_where_the_caller_can_do_something_about_it) {
    using linux_port::code_of_errno;
    EXPECT_EQ(code_of_errno(EINTR), KELO_ERR_INTERRUPTED);
    EXPECT_EQ(code_of_errno(EAGAIN), KELO_ERR_WOULD_BLOCK);
    for (const int passing : {ENOBUFS, ENOMEM, ECONNABORTED}) {
        EXPECT_EQ(code_of_errno(passing), KELO_ERR_TRY_AGAIN) << passing;
    }
    EXPECT_EQ(code_of_errno(EPIPE), -1000 - EPIPE);
}

TEST_F(linux_socket, observers_know_the_ports_of_both_sides) {
    std::string seen;
    linux_port::set_traffic_observer([&](const linux_port::traffic_notice &notice) {
        seen += std::to_string(static_cast<int>(notice.event)) + " of " +
                std::to_string(notice.descriptor) + " on " + std::to_string(notice.port) +
                ", peer " + std::to_string(notice.peer_port) + "\n";
    });
    std::vector<linux_port::server_notice> failures;
    int closed_with_error = -1;
    linux_port::set_server_observer([&](const linux_port::server_notice &notice) {
        if (notice.event == linux_port::server_event::failed) {
            failures.push_back(notice);
        } else if (notice.event == linux_port::server_event::closed) {
            closed_with_error = notice.error;
        }
    });
    const int32_t receiver = make(KELO_SOCKET_UDP);
    // The traffic names the port that was asked for.
    uint16_t port = 21'000;
    while (kelo_hal_net_bind(receiver, loopback, port) != 0) {
        ++port;
    }
    EXPECT_TRUE(failures.empty()) << "expected a socket for datagrams to be no server";
    const int32_t sender = make(KELO_SOCKET_UDP);
    EXPECT_EQ(kelo_hal_net_bind(sender, loopback, 0), 0);
    EXPECT_EQ(kelo_hal_net_send_to(sender, "x", 1, loopback, port), 1);
    char byte = 0;
    uint32_t address = 0;
    uint16_t from = 0;
    EXPECT_EQ(kelo_hal_net_recvfrom(receiver, &byte, 1, &address, &from), 1);
    EXPECT_EQ(address, loopback);
    EXPECT_EQ(from, port_of(sender));
    EXPECT_EQ(seen, "5 of " + std::to_string(sender) + " on " + std::to_string(port) + ", peer " +
                        std::to_string(port) + "\n4 of " + std::to_string(receiver) + " on " +
                        std::to_string(port) + ", peer " + std::to_string(from) + "\n");

    const int32_t server = make(KELO_SOCKET_TCP);
    EXPECT_EQ(kelo_hal_net_bind(server, loopback, 0), 0);
    EXPECT_EQ(kelo_hal_net_listen(server, 1), 0);
    EXPECT_EQ(kelo_hal_net_bind(make(KELO_SOCKET_TCP), loopback, port_of(server)), -1);
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EADDRINUSE);
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].port, port_of(server));
    EXPECT_EQ(failures[0].error, EADDRINUSE);
    kelo_hal_net_close(server);
    EXPECT_EQ(closed_with_error, 0);
    linux_port::set_traffic_observer({});
    linux_port::set_server_observer({});
}
