/* Sending to one client. May be called on any thread inside the agent; waits for room as the port's
 * send does. */
#pragma once

#include <cstdint>

/**
 * Sends one reply-form frame.
 *
 * @param data     len payload bytes; may be null when len is 0
 * @param encrypt  whether the payload is encrypted with the TCP key; an empty one never is
 * @return 0 sent whole; -925 the socket is marked faulty or unknown, or the agent is being stopped
 *     and this is not the server task; nothing was written; -909 the write failed, the socket is
 *     now marked faulty; -1 no memory for the frame; else the cipher's code
 */
int32_t __mlp_gw_tcp_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                          const void *data, uint32_t len, bool encrypt);

/**
 * Sends a large plain payload in segments of at most 1024 bytes, one every 300 ms. The last segment
 * is the rest, 0 bytes long when nothing is left.
 *
 * @param data  len payload bytes; may be null when len is 0
 * @return 0, -925, -909 or -1 as above; what was sent before a failure stays sent
 */
int32_t __mlp_gw_tcp_large_send(int32_t socket, uint32_t fr_num, uint32_t fr_type, uint32_t ret,
                                const void *data, uint32_t len);
