// The gateway as an access point that waits for its Wi-Fi network.
#pragma once

namespace gateway {

/** Begins without an access point. */
void open_access_points();
/** Ends the listener and the joining of a network. */
void close_access_points();

} // namespace gateway
