// Speed of the Linux port's primitives on loopback: sending, being woken, timers, the message bus.
#include "linux_port/port.h"
#include "platform/message_bus.h"
#include "platform/socket.h"
#include "platform/timer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <semaphore>
#include <string>
#include <thread>

namespace {

constexpr uint16_t bench_port = 29668;

/** A socket of the port and a plain system socket that is connected to it. */
struct connection {
    connection() {
        listening = kelo_hal_net_socket_create(KELO_SOCKET_TCP);
        kelo_hal_net_set_bufsize(listening, 0x20000, KELO_BUFFER_SEND);
        kelo_hal_net_set_reuse(listening);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(bench_port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        peer = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int on = 1;
        setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (kelo_hal_net_bind(listening, KELO_ADDRESS_ANY, bench_port) != 0 ||
            kelo_hal_net_listen(listening, 5) != 0 ||
            connect(peer, reinterpret_cast<sockaddr *>(&to), sizeof to) != 0) {
            std::abort();
        }
        socket = kelo_hal_net_accept(listening, nullptr, nullptr);
    }
    ~connection() {
        close(peer);
        kelo_hal_net_close(socket);
        kelo_hal_net_close(listening);
    }
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;

    int32_t listening;
    int32_t socket;
    int peer;
};

bool receive_whole(int fd, std::string &frame) {
    return recv(fd, frame.data(), frame.size(), MSG_WAITALL) == static_cast<ssize_t>(frame.size());
}

/** The port sends a frame, the peer answers with one byte, the port waits for it in select. */
void send_and_select_round_trip(benchmark::State &state) {
    const connection one;
    std::thread echo([&one, size = static_cast<size_t>(state.range(0))] {
        std::string frame(size, '\0');
        while (receive_whole(one.peer, frame) && send(one.peer, "x", 1, MSG_NOSIGNAL) == 1) {
        }
    });
    const std::string frame(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        char byte;
        kelo_fd_set_t set;
        kelo_hal_net_fd_zero(&set);
        kelo_hal_net_fd_set(one.socket, &set);
        if (kelo_hal_net_send(one.socket, frame.data(), static_cast<uint32_t>(frame.size())) <= 0 ||
            kelo_hal_net_select(one.socket + 1, &set, nullptr, nullptr, 10'000) != 1 ||
            kelo_hal_net_recv(one.socket, &byte, 1) != 1) {
            state.SkipWithError("the round trip failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    kelo_hal_net_shutdown(one.socket);
    echo.join();
}
BENCHMARK(send_and_select_round_trip)->Arg(64)->Arg(512 * 1024)->UseRealTime();

/** What one select over a full server costs by itself: a listener and ten clients in two sets, one
 * ready. */
void select_over_eleven_sockets(benchmark::State &state) {
    const connection one;
    send(one.peer, "x", 1, MSG_NOSIGNAL);
    int32_t others[9];
    kelo_fd_set_t all;
    kelo_hal_net_fd_zero(&all);
    kelo_hal_net_fd_set(one.listening, &all);
    kelo_hal_net_fd_set(one.socket, &all);
    for (int32_t &other : others) {
        other = kelo_hal_net_socket_create(KELO_SOCKET_UDP);
        kelo_hal_net_fd_set(other, &all);
    }
    for (auto _ : state) {
        kelo_fd_set_t readable = all;
        kelo_fd_set_t exceptional = all;
        benchmark::DoNotOptimize(
            kelo_hal_net_select(INT32_MAX, &readable, nullptr, &exceptional, 10'000));
    }
    for (const int32_t other : others) {
        kelo_hal_net_close(other);
    }
}
BENCHMARK(select_over_eleven_sockets);

void start_and_stop_a_timer(benchmark::State &state) {
    uint16_t id = 0;
    sys_add_timer([](uint16_t, void *) {}, nullptr, &id);
    for (auto _ : state) {
        sys_start_timer(id, 40'000, SYS_TIMER_ONE_SHOT);
        sys_stop_timer(id);
    }
    sys_delete_timer(id);
}
BENCHMARK(start_and_stop_a_timer);

std::binary_semaphore delivered(0);

void post_until_delivered(benchmark::State &state) {
    uint16_t id = 0;
    cmmod_reg_msgcb(
        [](cmmod_msg_t *message) {
            put_rfc_data(message->rfc);
            delivered.release();
        },
        &id);
    const std::string report(256, 'x');
    for (auto _ : state) {
        cmmod_post_msg(id, report.data(), static_cast<uint32_t>(report.size()));
        delivered.acquire();
    }
    cmmod_unreg_msgcb(id);
}
BENCHMARK(post_until_delivered)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    linux_port::shutdown();
}
