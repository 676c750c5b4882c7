// Network interfaces as people name them.
#pragma once

#include <string>
#include <vector>

namespace support {

/** The network interfaces of this machine. */
[[nodiscard]] std::vector<std::string> interface_names();

/**
 * Looks for a network interface of this machine.
 *
 * @return what is wrong with the name, and the names that there are; empty when there is such an
 * interface
 */
[[nodiscard]] std::string interface_fault(const std::string &name);

/** @return the names of the interfaces that are up, lo last; none when the system does not say */
[[nodiscard]] std::vector<std::string> interfaces_up();

} // namespace support
