// SO_BINDTODEVICE.
#include "bind_to_interface.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>

namespace lan_client {

error bind_to_interface(int socket, const std::string &interface_name) {
    if (interface_name.empty()) {
        return {};
    }
    const auto size = static_cast<socklen_t>(interface_name.size());
    if (setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, interface_name.data(), size) == 0) {
        return {};
    }
    return {error_kind::no_interface, interface_name + ": " + std::strerror(errno)};
}

} // namespace lan_client
