/* Reads from one client and splits the bytes into frames. */
#pragma once

#include <cstdint>

/** How the serving cycle continues after a read. */
enum class read_outcome : uint8_t {
    go_on,    /**< the next client may be served */
    end_cycle /**< the cycle ends; later clients are served in the next one */
};

/**
 * Reads once from a client, and handles every frame that begins in what was read, to the end of its
 * answer. Server task.
 *
 * @param socket  a client whose socket is readable
 * @param now     POSIX seconds of this cycle
 */
[[nodiscard]] read_outcome read_from_client(int32_t socket, uint32_t now);
