// Messages to the user about the state of the agent's server.
#pragma once

#include <string>

namespace gatewayd {

/** Prints the ready line when the server first listens, and a message when its port is taken. */
void watch_server(const std::string &interface, const std::string &address);

/**
 * Prints the ready line.
 *
 * @param service  what is ready
 */
void say_ready(const std::string &service);

/** Whether the server listens at the moment. */
bool server_is_listening();

} // namespace gatewayd
