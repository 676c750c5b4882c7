/* Reports the state of TCP servers, and what passes through sockets, to the program. */
#pragma once

#include "descriptor_table.h"
#include "linux_port/port.h"

#include <string_view>

namespace linux_port {

/** Reports a socket that listens from now on. */
void tell_listening(socket_record &socket);
/** Reports that a server could not bind or listen, for the reason in errno, which is preserved. */
void tell_failed(const socket_record &socket, uint16_t port);
/** Reports a connection that a server has accepted. */
void tell_connected(int32_t descriptor, const connection_origin &accepted);
/** Reports the close of a socket that listened, or of an accepted connection. */
void tell_closed(int32_t descriptor, const socket_record &socket);
/** Reports bytes that came on an accepted connection, or that are about to leave. */
void tell_received(int32_t descriptor, const socket_record &socket, std::string_view bytes);
void tell_sent(int32_t descriptor, const socket_record &socket, std::string_view bytes);
/** Reports a datagram that came or left; the address and the port are the other side's. */
void tell_datagram_received(int32_t descriptor, const socket_record &socket, std::string_view bytes,
                            uint32_t address, uint16_t port);
void tell_datagram_sent(int32_t descriptor, std::string_view bytes, uint32_t address,
                        uint16_t port);

} // namespace linux_port
