// Interfaces and addresses of the Linux port's sockets, their options, and the state of the
// network.
#include "descriptor_table.h"
#include "linux_port/port.h"
#include "platform/clock.h"
#include "platform/network.h"
#include "platform/socket.h"
#include "platform/thread.h"
#include "platform/timer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace {

/** An address for one gateway of this process: 127.128.0.0 upwards, two a process. */
std::string own_address(uint32_t gateway) {
    const uint32_t number =
        0x7F800000u | (static_cast<uint32_t>(getpid()) * 2 + gateway) % 0x700000u;
    return inet_ntoa(in_addr{htonl(number)});
}

uint16_t own_port() {
    return static_cast<uint16_t>(31000 + getpid() % 1000);
}

class linux_network : public testing::Test {
  protected:
    void SetUp() override { be_gateway(0); }
    void TearDown() override {
        linux_port::shutdown();
        (void)linux_port::configure_network({});
    }
    static void be_gateway(uint32_t gateway) {
        ASSERT_TRUE(linux_port::configure_network({"lo", own_address(gateway)}));
    }

    static int32_t open_udp_listener() {
        const int32_t socket = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
        EXPECT_EQ(kelo_hal_net_bind(socket, KELO_ADDRESS_ANY, own_port()), 0);
        kelo_hal_net_set_block(socket, false);
        return socket;
    }

    /** A listening socket and one connection to it. */
    void open_connection() {
        listening = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
        ASSERT_EQ(kelo_hal_net_set_bufsize(listening, 0x20000, KELO_BUFFER_SEND), 0);
        ASSERT_EQ(kelo_hal_net_set_reuse(listening), 0);
        ASSERT_EQ(kelo_hal_net_bind(listening, KELO_ADDRESS_ANY, own_port()), 0);
        ASSERT_EQ(kelo_hal_net_listen(listening, 5), 0);
        connect_peer();
    }
    void connect_peer() {
        peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(own_port());
        to.sin_addr.s_addr = inet_addr(own_address(0).c_str());
        ASSERT_EQ(connect(peer, reinterpret_cast<sockaddr *>(&to), sizeof to), 0);
    }

    int32_t listening = 0;
    int peer = -1;
};

int option_of(int fd, int level, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(fd, level, option, &value, &size);
    return value;
}

/** A select for reading and for exceptions. */
int32_t select_input(const std::vector<int32_t> &sockets, uint32_t milliseconds) {
    kelo_fd_set_t read_set;
    kelo_hal_net_fd_zero(&read_set);
    for (const int32_t socket : sockets) {
        kelo_hal_net_fd_set(socket, &read_set);
    }
    kelo_fd_set_t exception_set = read_set;
    return kelo_hal_net_select(INT32_MAX, &read_set, nullptr, &exception_set, milliseconds);
}

/** The system's descriptors of sockets that this process has. */
std::vector<int> system_sockets() {
    std::vector<int> sockets;
    for (int fd = 3; fd < 256; fd++) {
        int type = 0;
        socklen_t size = sizeof type;
        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size) == 0) {
            sockets.push_back(fd);
        }
    }
    return sockets;
}

} // namespace

TEST_F(linux_network, every_socket_stays_on_the_interface_and_out_of_started_programs) {
    open_connection();
    const int32_t accepted = kelo_hal_net_accept(listening, nullptr, nullptr);
    const int32_t udp = open_udp_listener(); // two of the system's, one for broadcasts
    ASSERT_GT(accepted, 0);
    size_t checked = 0;
    for (const int fd : system_sockets()) {
        if (fd == peer) {
            continue;
        }
        char interface[16] = "";
        socklen_t size = sizeof interface;
        EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface, &size), 0);
        EXPECT_STREQ(interface, "lo");
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
        checked++;
    }
    EXPECT_EQ(checked, 4u);
    for (const int32_t socket : {listening, accepted, udp}) {
        EXPECT_EQ(kelo_hal_net_close(socket), 0);
    }
    close(peer);
    EXPECT_TRUE(system_sockets().empty()) << "a closed socket is still open";
    ASSERT_TRUE(linux_port::configure_network({"no_such_if", ""}));
    EXPECT_LT(kelo_hal_net_socket_create(KELO_SOCKET_TCP), 0) << "not confined, so not created";
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - ENODEV);
}

TEST_F(linux_network, an_accepted_socket_has_no_send_delay_and_only_its_send_buffer_is_set) {
    const int untouched = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    open_connection();
    const int32_t accepted = kelo_hal_net_accept(listening, nullptr, nullptr);
    const int fd = system_sockets().back();
    EXPECT_EQ(option_of(fd, IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(option_of(fd, SOL_SOCKET, SO_SNDBUF), 2 * 0x20000) << "the system counts double";
    const int listener = system_sockets()[1];
    EXPECT_EQ(option_of(listener, SOL_SOCKET, SO_RCVBUF),
              option_of(untouched, SOL_SOCKET, SO_RCVBUF));
    kelo_hal_net_close(accepted);
    kelo_hal_net_close(listening);
    close(peer);
    close(untouched);
}

TEST_F(linux_network, the_observer_and_the_receiving_thread_know_the_peer) {
    std::vector<std::string> noticed;
    linux_port::set_server_observer([&](const linux_port::server_notice &notice) {
        EXPECT_EQ(notice.port, own_port());
        const char *const names[] = {"listening ", "failed ", "closed ", "connected ",
                                     "disconnected "};
        noticed.push_back(names[static_cast<std::size_t>(notice.event)] + notice.peer);
    });
    open_connection();
    const int32_t accepted = kelo_hal_net_accept(listening, nullptr, nullptr);
    std::string before;
    std::string sender;
    std::thread([&] {
        char byte = 0;
        before = linux_port::last_sender();
        EXPECT_EQ(::send(peer, "x", 1, 0), 1);
        EXPECT_EQ(kelo_hal_net_recv(accepted, &byte, 1), 1);
        sender = linux_port::last_sender();
    }).join();
    EXPECT_EQ(before, "") << "the thread has received nothing";
    EXPECT_EQ(sender, "127.0.0.1");
    const int32_t datagrams = open_udp_listener();
    const uint32_t own = ntohl(inet_addr(own_address(0).c_str()));
    EXPECT_EQ(kelo_hal_net_send_to(datagrams, "x", 1, own, own_port()), 1);
    EXPECT_EQ(kelo_hal_net_recvfrom(datagrams, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_EQ(linux_port::last_sender(), own_address(0)) << "of a datagram without room, too";
    kelo_hal_net_close(datagrams);
    kelo_hal_net_close(accepted);
    kelo_hal_net_close(listening);
    close(peer);
    linux_port::set_server_observer({});
    EXPECT_EQ(noticed, (std::vector<std::string>{"listening ", "connected 127.0.0.1",
                                                 "disconnected 127.0.0.1", "closed "}));
}

TEST_F(linux_network, the_traffic_observer_sees_every_byte_in_its_order) {
    std::vector<std::string> seen;
    linux_port::set_traffic_observer([&](const linux_port::traffic_notice &notice) {
        const char *const names[] = {"connected", "received ",          "sent ",
                                     "closed",    "datagram received ", "datagram sent "};
        seen.push_back(names[static_cast<std::size_t>(notice.event)] + std::string(notice.bytes) +
                       (notice.peer_has_ended ? " by the peer" : ""));
        EXPECT_EQ(linux_port::address_text(notice.peer), "127.0.0.1");
    });
    open_connection();
    const int32_t accepted = kelo_hal_net_accept(listening, nullptr, nullptr);
    char bytes[8];
    EXPECT_EQ(::send(peer, "in", 2, 0), 2);
    EXPECT_EQ(kelo_hal_net_recv(accepted, bytes, sizeof bytes), 2);
    EXPECT_EQ(kelo_hal_net_send(accepted, "out", 3), 3);
    const int32_t sender = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    EXPECT_EQ(kelo_hal_net_send_to(sender, "by air", 6, 0x7F000001, own_port()), 6);
    close(peer);
    EXPECT_LE(kelo_hal_net_recv(accepted, bytes, sizeof bytes), 0) << "it is reset or at its end";
    for (const int32_t each : {accepted, listening, sender}) {
        kelo_hal_net_close(each);
    }
    linux_port::set_traffic_observer({});
    EXPECT_EQ(seen, (std::vector<std::string>{"connected", "received in", "sent out",
                                              "datagram sent by air", "closed by the peer"}));
}

TEST_F(linux_network, gateways_on_one_host_get_their_own_datagrams_and_all_broadcasts) {
    const int32_t first = open_udp_listener();
    be_gateway(1);
    const int32_t second = open_udp_listener();
    const int32_t sender = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    ASSERT_EQ(kelo_hal_net_set_boardcast(sender), 0);
    const auto received = [](int32_t socket) {
        char byte = 0;
        return kelo_hal_net_recvfrom(socket, &byte, 1, nullptr, nullptr) == 1;
    };
    const uint32_t second_address = ntohl(inet_addr(own_address(1).c_str()));
    ASSERT_EQ(kelo_hal_net_send_to(sender, "x", 1, second_address, own_port()), 1);
    EXPECT_FALSE(received(first));
    EXPECT_TRUE(received(second));
    ASSERT_EQ(kelo_hal_net_send_to(sender, "x", 1, KELO_ADDRESS_BROADCAST, own_port()), 1);
    EXPECT_TRUE(received(first));
    EXPECT_TRUE(received(second));
    EXPECT_FALSE(received(second)) << "a broadcast came twice";
    for (const int32_t socket : {first, second, sender}) {
        kelo_hal_net_close(socket);
    }
}

TEST_F(linux_network, other_errno_values_give_negative_codes_without_a_name) {
    open_connection();
    const int32_t other = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
    EXPECT_LT(kelo_hal_net_bind(other, KELO_ADDRESS_ANY, own_port()), 0);
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EADDRINUSE);
    kelo_hal_net_close(other);
    const int32_t sender = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    const std::string too_long(70'000, 'x');
    EXPECT_LT(kelo_hal_net_send_to(sender, too_long.data(), 70'000, 0x7F000001, own_port()), 0);
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EMSGSIZE);
    kelo_hal_net_close(sender);
    kelo_hal_net_close(listening);
    close(peer);
}

TEST_F(linux_network, running_out_of_descriptors_fails_calls_and_nothing_else) {
    open_connection();
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlim_t lowest_free = static_cast<rlim_t>(dup(0));
    close(static_cast<int>(lowest_free));
    const rlimit none{lowest_free, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_LT(kelo_hal_net_accept(listening, nullptr, nullptr), 0);
    const auto after = std::chrono::steady_clock::now();
    EXPECT_EQ(kelo_hal_net_get_errno(), -1000 - EMFILE);
    const auto pause_end = linux_port::find_socket(listening)->accept_pause_end.load();
    EXPECT_GE(pause_end, before + std::chrono::milliseconds(250));
    EXPECT_LE(pause_end, after + std::chrono::milliseconds(250));
    thrd_handle_t handle = nullptr;
    const thrd_param_t param{0, 0, "none"};
    EXPECT_LT(CreateAndStart(
                  &handle, nullptr, nullptr, [](void *) {}, nullptr, &param),
              0);
    EXPECT_EQ(handle, nullptr);
    const auto begin = std::chrono::steady_clock::now();
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(select_input({listening}, 60'000), 1);
        EXPECT_LT(kelo_hal_net_accept(listening, nullptr, nullptr), 0);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(400))
        << "expected select not to spin on a connection that can't be accepted";
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const int32_t accepted = kelo_hal_net_accept(listening, nullptr, nullptr);
    EXPECT_GT(accepted, 0) << "the connection is still there";
    kelo_hal_net_close(accepted);
    kelo_hal_net_close(listening);
    close(peer);
}

TEST_F(linux_network, descriptor_0_is_as_good_as_any_where_standard_input_is_closed) {
    const auto is_open = [] { return fcntl(STDIN_FILENO, F_GETFD) >= 0; };
    const int input = dup(STDIN_FILENO);
    const int32_t udp = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
    close(STDIN_FILENO);
    const int32_t tcp = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
    EXPECT_GT(tcp, 0);
    EXPECT_TRUE(is_open()) << "expected the system to give 0";
    EXPECT_EQ(kelo_hal_net_close(tcp), 0);
    EXPECT_FALSE(is_open()) << "expected it to be closed again";
    EXPECT_EQ(kelo_hal_net_bind(udp, KELO_ADDRESS_ANY, own_port()), 0);
    EXPECT_TRUE(is_open()) << "expected the socket for broadcasts to have 0";
    EXPECT_EQ(kelo_hal_net_close(udp), 0);
    EXPECT_FALSE(is_open()) << "expected it to be closed, too";
    const int32_t sender = kelo_hal_net_socket_create(KELO_SOCKET_UDP); // has 0 now
    EXPECT_EQ(kelo_hal_net_bind(sender, KELO_ADDRESS_ANY, 0), 0);
    EXPECT_EQ(system_sockets().size(), 0u) << "expected no socket for broadcasts without a port";
    EXPECT_EQ(kelo_hal_net_close(sender), 0);
    dup2(input, STDIN_FILENO);
    close(input);
}

TEST_F(linux_network, select_needs_no_more_descriptors_than_its_sockets) {
    std::vector<int32_t> listeners;
    for (int i = 0; i < 11; ++i) {
        listeners.push_back(kelo_hal_net_socket_create(KELO_SOCKET_TCP));
        ASSERT_EQ(kelo_hal_net_bind(listeners.back(), KELO_ADDRESS_ANY, 0), 0);
        ASSERT_EQ(kelo_hal_net_listen(listeners.back(), 5), 0);
    }
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit few{static_cast<rlim_t>(system_sockets().back() + 1), limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_EQ(select_input(listeners, 1), 0) << "code " << kelo_hal_net_get_errno();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    for (const int32_t socket : listeners) {
        kelo_hal_net_close(socket);
    }
}

TEST(descriptor_table, numbers_start_again_at_1_below_the_highest_that_select_can_count_to) {
    using linux_port::descriptor_after;
    EXPECT_EQ(descriptor_after(0), 1);
    EXPECT_EQ(descriptor_after(INT32_MAX - 2), INT32_MAX - 1);
    EXPECT_EQ(descriptor_after(INT32_MAX - 1), 1);
}

TEST_F(linux_network, sockets_may_be_closed_while_other_threads_use_them) {
    for (int round = 0; round < 50; round++) {
        open_connection();
        const int32_t accepted = kelo_hal_net_accept(listening, nullptr, nullptr);
        ASSERT_GT(accepted, 0);
        std::vector<std::thread> users;
        for (int user = 0; user < 4; user++) {
            users.emplace_back([accepted, user] {
                const std::string frame(100'000, 'x');
                int32_t result = 1;
                while (result > 0) {
                    kelo_fd_set_t set;
                    kelo_hal_net_fd_zero(&set);
                    kelo_hal_net_fd_set(accepted, &set);
                    result = user < 2 ? kelo_hal_net_send(accepted, frame.data(), 100'000)
                                      : kelo_hal_net_select(accepted + 1, &set, nullptr, nullptr,
                                                            60'000);
                }
            });
        }
        kelo_hal_net_close(accepted);
        for (std::thread &user : users) {
            user.join();
        }
        kelo_hal_net_close(listening);
        close(peer);
    }
}

TEST_F(linux_network, the_port_reports_address_mask_and_state_of_its_interface) {
    EXPECT_EQ(linux_port::interface_address("lo"), "127.0.0.1");
    EXPECT_EQ(linux_port::interface_address("no_such_if"), std::nullopt);
    EXPECT_TRUE(linux_port::interface_is_up("lo"));
    EXPECT_FALSE(linux_port::interface_is_up("no_such_if"));
    EXPECT_FALSE(linux_port::configure_network({"lo", "127.0.0"}));
    EXPECT_FALSE(linux_port::configure_network({"sixteen_letters_", ""})) << "no name is so long";
    EXPECT_TRUE(linux_port::configure_network({"fifteen_letters", own_address(0)}));
    be_gateway(0);

    uint8_t kind = 0xFF;
    gw_addr_t address{};
    EXPECT_EQ(engr_get_wired_wifi_current_net(&kind), 0);
    EXPECT_EQ(kind, NETWORK_KIND_WIRED);
    EXPECT_NE(engr_get_gw_nw_status() & 0xFF, 0u);
    EXPECT_EQ(bnw_need_wifi_cfg() & 1, 0u) << "it is wired";
    EXPECT_EQ(bnw_get_ip(&address), 0);
    EXPECT_EQ(address.ip, own_address(0));
    EXPECT_STREQ(address.mask, "255.0.0.0");
    ASSERT_TRUE(linux_port::configure_network({"no_such_if", ""}));
    EXPECT_EQ(engr_get_gw_nw_status() & 0xFF, 0u);
    EXPECT_NE(wf_get_ip(WF_STATION, &address), 0);
}

TEST_F(linux_network, a_shutdown_ends_a_long_callback_and_timers_start_anew) {
    static std::atomic<int> entered;
    entered = 0;
    const auto callback = [](uint16_t, void *) {
        entered++;
        kelo_hal_system_sleep(3'600'000);
    };
    for (int round = 1; round <= 2; round++) {
        uint16_t id = 0;
        ASSERT_EQ(sys_add_timer(callback, nullptr, &id), 0);
        ASSERT_EQ(sys_start_timer(id, 1, SYS_TIMER_PERIODIC), 0);
        for (int waits = 0; waits < 20'000 && entered < round; waits++) {
            kelo_hal_system_sleep(1);
        }
        EXPECT_EQ(entered, round);
        linux_port::shutdown();
        EXPECT_EQ(IsThisSysTimerRun(id), 0);
    }
}
