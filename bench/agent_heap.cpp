// Memory that the agent has taken with Malloc: at rest, and for each idle client.
#include "bench_site.h"
#include "engr_lan_agent.h"
#include "gateway/gateway.h"
#include "linux_port/port.h"

#include <arpa/inet.h>
#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <semaphore>

namespace {

gw_cntl_t gateway_record{};
std::atomic<size_t> taken{0};
std::binary_semaphore listening{0};

/** Connects, and has a keep-alive answered. */
bool connect_client() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(bench::server_port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const uint8_t keepalive[24] = {0, 0, 0x55, 0xAA, 0, 0, 0, 0, 0, 0, 0,    9,
                                   0, 0, 0,    8,    0, 0, 0, 0, 0, 0, 0xAA, 0x55};
    uint8_t answer[28];
    return connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
           send(fd, keepalive, sizeof keepalive, 0) == sizeof keepalive &&
           recv(fd, answer, sizeof answer, MSG_WAITALL) == sizeof answer;
}

} // namespace

gw_cntl_t *engr_get_gw_cntl() {
    return &gateway_record;
}

// The linker puts these in the place of Malloc and Free.
extern "C" {
void *__real_Malloc(size_t size);
void __real_Free(void *block);

void *__wrap_Malloc(size_t size) {
    void *block = __real_Malloc(size);
    taken += malloc_usable_size(block);
    return block;
}

void __wrap_Free(void *block) {
    taken -= malloc_usable_size(block);
    __real_Free(block);
}
}

int main() {
    linux_port::set_server_observer([](const linux_port::server_notice &notice) {
        if (notice.event == linux_port::server_event::listening) {
            listening.release();
        }
    });
    if (engr_lan_pro_cntl_init(0) != ENGR_OK) {
        std::fputs("agent_heap: the agent does not start\n", stderr);
        return 1;
    }
    listening.acquire();
    const size_t at_rest = taken;
    for (int i = 0; i < bench::client_max; ++i) {
        if (!connect_client()) {
            std::perror("agent_heap");
            return 1;
        }
    }
    usleep(100'000); // the last answer's frame is being released
    std::printf("at rest: %zu bytes; for each of %d idle clients: %.1f bytes\n", at_rest,
                bench::client_max, static_cast<double>(taken - at_rest) / bench::client_max);
    engr_lan_pro_cntl_exit();
    linux_port::shutdown();
}
