// The simulated port under the conformance kit: main is thread "main" of a world, and the peers are
// the world's. Whatever is left over at the end fails the run.
#include "conformance/harness.h"

#include "sim/world.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <list>
#include <optional>

struct conformance_peer {
    sim::peer stream;
    std::optional<sim::udp_peer> datagrams;
};

namespace {

constexpr const char *address_text = "192.168.1.1";

char file_path[40];

/** Three frames, each more than the send buffer that the kit asks for. */
std::array<char, 3 * 512 * 1024> memory;
std::list<conformance_peer> peers;

void print_line(const char *line) {
    std::puts(line);
    std::fflush(stdout);
}

void give_up() {
    std::_Exit(1);
}

uint64_t now_ms() {
    return sim::world::current().now_ms();
}

uint16_t free_port() {
    static uint16_t next = 20'000;
    return next++;
}

conformance_peer *connect_peer(uint16_t port) {
    sim::peer stream = sim::world::current().connect(port);
    if (!stream) {
        return nullptr;
    }
    stream.stop_reading();
    return &peers.emplace_back(conformance_peer{stream, std::nullopt});
}

conformance_peer *open_datagrams() {
    return &peers.emplace_back(conformance_peer{{}, sim::world::current().open_udp()});
}

void endpoint(conformance_peer *peer, uint32_t *address, uint16_t *port) {
    *address = peer->datagrams ? peer->datagrams->address() : peer->stream.address();
    *port = peer->datagrams ? peer->datagrams->port() : peer->stream.port();
}

bool send_bytes(conformance_peer *peer, const void *bytes, size_t length) {
    return peer->stream.send(std::string_view(static_cast<const char *>(bytes), length));
}

int32_t receive(conformance_peer *peer, void *bytes, size_t size, uint32_t timeout) {
    std::string received = peer->stream.receive(1, timeout);
    if (received.empty()) {
        return peer->stream.ended() ? 0 : -1;
    }
    const size_t more = std::min(size - 1, peer->stream.available());
    received += peer->stream.receive(more, timeout);
    std::memcpy(bytes, received.data(), received.size());
    return static_cast<int32_t>(received.size());
}

bool send_to(conformance_peer *peer, uint32_t address, uint16_t port, const void *bytes,
             size_t length) {
    peer->datagrams->send_to(address, port, {static_cast<const char *>(bytes), length});
    return true;
}

int32_t receive_from(conformance_peer *peer, void *bytes, size_t size, uint32_t timeout,
                     uint32_t *address, uint16_t *port) {
    const auto received = peer->datagrams->receive(timeout);
    if (!received) {
        return -1;
    }
    const size_t count = std::min(size, received->bytes.size());
    std::memcpy(bytes, received->bytes.data(), count);
    *address = received->address;
    *port = received->port;
    return static_cast<int32_t>(count);
}

void release(conformance_peer *peer) {
    peers.remove_if([peer](const conformance_peer &one) { return &one == peer; });
}

void close_peer(conformance_peer *peer) {
    peer->datagrams ? peer->datagrams->close() : peer->stream.close();
    release(peer);
}

void reset_peer(conformance_peer *peer) {
    peer->stream.reset();
    release(peer);
}

uint32_t permissions(const char *path) {
    return static_cast<uint32_t>(std::filesystem::status(path).permissions());
}

const conformance_harness_t harness = {
    .memory = memory.data(),
    .memory_bytes = sizeof memory,
    .stack_bytes = 2048,
    .deep_stack_bytes = 64 * 1024,
    .send_buffer_bytes = 131072,
    .rounds = 200,
    .ids = 70000,
    .sockets = 100,
    .at_once_ms = 10,
    .bound_ms = 20000,
    .address = sim::options{}.gateway_address,
    .address_text = address_text,
    .network_address = nullptr, // the simulated port has no state of the network
    .earliest_time = sim::options{}.posix_s,
    .has_priorities = false,
    .file_path = file_path,
    .barred_path = "/dev/null/file",
    .full_path = "/dev/full",
    .has_wifi = false,
    .has_airkiss = false,
    .print = print_line,
    .give_up = give_up,
    .now_ms = now_ms,
    .free_port = free_port,
    .connect = connect_peer,
    .open_datagrams = open_datagrams,
    .endpoint = endpoint,
    .send = send_bytes,
    .receive = receive,
    .send_to = send_to,
    .receive_from = receive_from,
    .close = close_peer,
    .reset = reset_peer,
    .option = nullptr, // options are accepted, and have no effect
    .slow = nullptr,   // the world's seeds decide who is late
    .exhaust = nullptr,
    .set_network = nullptr,
    .permissions = permissions,
    .take_log = nullptr, // the log shows all: it is the tests' own
};

} // namespace

int main(int argc, char **argv) {
    std::snprintf(file_path, sizeof file_path, "/tmp/conformance_sim.%d", getpid());
    umask(022); // takes nothing away from 0755
    sim::world world(sim::with_environment());
    const int result = conformance_main(&harness, argc, argv);
    for (const std::string &problem : world.finish()) {
        std::printf("broken  %s (ENGR_SIM_SEED=%llu)\n", problem.c_str(),
                    static_cast<unsigned long long>(world.seed()));
        return 1;
    }
    return result;
}
