// The Linux port under the conformance kit: on an address of 127.0.0.0/8 that this process has for
// itself.
#include "conformance/posix.h"

#include "linux_port/port.h"

#include <unistd.h>

#include <cstdio>

int main(int argc, char **argv) {
    // 127.64.0.0 upwards, by process number: runs beside each other never meet.
    const auto own = static_cast<unsigned>(getpid());
    char address[16];
    std::snprintf(address, sizeof address, "127.%u.%u.%u", 64 + (own >> 16) % 64, own >> 8 & 0xFF,
                  own & 0xFF);
    if (!linux_port::configure_network({"lo", address})) {
        return 1;
    }
    linux_port::set_log_sink(
        [](int, std::string_view line) { conformance_posix_add_log(line.data(), line.size()); });
    conformance_harness_t harness;
    conformance_posix_fill(&harness, address);
    harness.network_address = address;
    const int result = conformance_main(&harness, argc, argv);
    linux_port::shutdown();
    linux_port::set_log_sink({});
    return result;
}
