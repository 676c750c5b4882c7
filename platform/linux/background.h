/* Functions that end the port's background services, for linux_port::shutdown(). */
#pragma once

namespace linux_port {

void shut_timers_down();
void shut_message_bus_down();

} // namespace linux_port
