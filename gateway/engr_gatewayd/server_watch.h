// Messages to the user about the state of the agent's server.
#pragma once

#include "options.h"

#include <string>

namespace gatewayd {

/**
 * Prints the ready line when the server first listens. When its port is taken before that, ends the
 * daemon by a signal, unless it is to wait; later, prints a message.
 *
 * @param gateway  what the gateway is and has, for the ready line
 * @param console  address of its page, which nobody else is told: it has the token; may be empty
 */
void watch_server(const options &chosen, std::string gateway, std::string console);

/**
 * Prints the ready line.
 *
 * @param service  what is ready
 */
void say_ready(const std::string &service);

/** Whether the server listens at the moment. */
bool server_is_listening();
/** Why the daemon was ended by a signal of its own; empty when it was not. */
std::string server_fault();

} // namespace gatewayd
