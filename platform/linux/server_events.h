/* Reports the state of TCP servers to the program. */
#pragma once

#include "descriptor_table.h"
#include "linux_port/port.h"

namespace linux_port {

/** Reports a socket that listens from now on. */
void tell_listening(socket_record &socket);
/** Reports that a server could not bind or listen, for the reason in errno, which is preserved. */
void tell_failed(const socket_record &socket, uint16_t port);
/** Reports a connection that a server has accepted. */
void tell_connected(const connection_origin &accepted);
/** Reports the close of a socket that listened, or of an accepted connection. */
void tell_closed(const socket_record &socket);

} // namespace linux_port
