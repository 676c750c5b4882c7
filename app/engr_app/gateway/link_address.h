// What has an address of the local network.
#pragma once

#include <cstdint>
#include <string>

namespace engr_app {

/**
 * @param address  IPv4, with which this machine has just exchanged packets
 * @return the hardware address as in "02:00:5e:10:00:01", on the loopback interface the number of
 *         the socket that listens there as in "socket 4711"; empty behind a router, and where the
 *         system does not tell
 */
[[nodiscard]] std::string link_address_of(const std::string &address, uint16_t port);

} // namespace engr_app
