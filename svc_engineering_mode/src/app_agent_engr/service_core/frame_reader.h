/* Reads from one client and cuts what came into frames. */
#pragma once

#include <cstdint>

/** What a read means for the serving cycle. */
enum class read_outcome : uint8_t {
    go_on,    /**< the next client may be served */
    end_cycle /**< the cycle ends; clients behind this one wait for the next */
};

/**
 * Reads once from a client, and handles every frame that begins in what was read, to the end of its
 * answer. Server task.
 *
 * @param socket  a client whose socket is readable
 * @param now     POSIX seconds of this cycle
 */
[[nodiscard]] read_outcome read_from_client(int32_t socket, uint32_t now);
