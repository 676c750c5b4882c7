// Confining a socket to one network interface.
#pragma once

#include "lan_client/errors.h"

#include <string>

namespace lan_client {

/** Keeps the socket's traffic on the interface; an empty name leaves it free. */
[[nodiscard]] error bind_to_interface(int socket, const std::string &interface_name);

} // namespace lan_client
