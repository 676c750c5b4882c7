/* The port under the conformance kit. */
#include "port.h"

#include "conformance/posix.h"

static void add_log(const char *line, unsigned long length) {
    conformance_posix_add_log(line, length);
}

int main(int argc, char **argv) {
    static conformance_harness_t harness;
    /* Another one than a socket sends from by itself, so that a bound address shows. */
    conformance_posix_fill(&harness, "127.0.0.2");
    harness.network_address = "127.0.0.1";
    port_set_log_sink(add_log);
    return conformance_main(&harness, argc, argv);
}
