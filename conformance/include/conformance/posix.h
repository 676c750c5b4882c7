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
 * file in /tmp, the look below the contracts, and take_log, for which the port hands each line to
 * conformance_posix_add_log. Left to the caller: network_address, set_network, has_wifi,
 * has_airkiss.
 *
 * @param[out] harness  the record; what it does not set is zero
 * @param address       where a socket bound to KELO_ADDRESS_ANY is reached, dotted decimal; an
 *     address of the loopback interface. Lives until the run is over
 */
void conformance_posix_fill(conformance_harness_t *harness, const char *address);

/**
 * Takes a line of the log for conformance_harness_t.take_log. Any thread.
 *
 * @param line    the line without its newline
 * @param length  its length in bytes
 */
void conformance_posix_add_log(const char *line, size_t length);

#ifdef __cplusplus
}
#endif
