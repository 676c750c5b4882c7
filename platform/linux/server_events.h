// Tells the program what becomes of its TCP servers.
#pragma once

#include "descriptor_table.h"
#include "linux_port/port.h"

namespace linux_port {

/** Tells of a socket that listens from now on. */
void tell_listening(socket_record &socket);
/** Tells of a port that could not be had, the reason being errno. errno is left as it was. */
void tell_failed(const socket_record &socket, uint16_t port);
/** Tells of a socket that is closed, if it listened. */
void tell_closed(const socket_record &socket);

} // namespace linux_port
