/* The listening socket of the TCP server. */
#pragma once

#include <cstdint>

/**
 * Creates it on any address.
 *
 * @param port  used as 16 bits
 * @return the descriptor; or -1 creation, -6 buffer size, -2 address reuse, -3 bind, -4
 *     close-on-exec, -5 listen failed (each logged, nothing left open)
 */
[[nodiscard]] int32_t __setup_tcp_serv_socket(int32_t port);
