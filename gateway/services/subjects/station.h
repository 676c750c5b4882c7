// The Wi-Fi station and the access point that waits for its credentials: open_access_point and
// listen_for_credentials of operate.h.
#pragma once

namespace gateway {

/** Initialises the module; nothing listens. */
void station_init();
/** Ends the listener, and the attempt to connect. */
void station_shutdown();

} // namespace gateway
