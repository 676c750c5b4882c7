// Which hardware has an address of the local network.
#pragma once

#include <string>

namespace engr_app {

/**
 * @param address  IPv4, with which this machine has just exchanged packets
 * @return the hardware address as in "02:00:5e:10:00:01"; empty on lo, behind a router, and where
 *         the system does not tell
 */
[[nodiscard]] std::string link_address_of(const std::string &address);

} // namespace engr_app
