// What the daemon tells the service manager that started it, if one did.
#pragma once

#include <string>

namespace gatewayd {

/**
 * Sends a notification by the protocol of systemd's services of type "notify": lines such as
 * "READY=1", "STATUS=TEXT". Does nothing without NOTIFY_SOCKET in the environment; never waits.
 */
void notify_service_manager(const std::string &lines);

} // namespace gatewayd
