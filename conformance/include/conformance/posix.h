/*
 * A harness whose peers are BSD sockets of the same process: for ports to Linux and to other
 * systems that have them. What only the port knows stays for its own file.
 */
#pragma once

#include "conformance/harness.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Fills in all that a desktop has in common: sizes, times, peers on the loopback interface, a
 * file in /tmp, the look below the contracts. Left to the caller: network_address, take_log,
 * set_network, has_wifi, has_airkiss.
 *
 * @param[out] harness  the record; what it does not set is zero
 * @param address       where a socket bound to KELO_ADDRESS_ANY is reached, dotted decimal; an
 *     address of the loopback interface. Lives until the run is over
 */
void conformance_posix_fill(conformance_harness_t *harness, const char *address);

/** Takes lines of a log for conformance_harness_t.take_log. Any thread. */
void conformance_posix_add_log(const char *line, size_t length);

#ifdef __cplusplus
}
#endif
