#include "service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace gatewayd {

void notify_service_manager(const std::string &lines) {
    const char *value = std::getenv("NOTIFY_SOCKET");
    const std::string_view name = value == nullptr ? "" : value;
    sockaddr_un address{};
    if (name.size() < 2 || name.size() >= sizeof address.sun_path) {
        return;
    }
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, name.size());
    if (name.front() == '@') {
        address.sun_path[0] = '\0'; // an abstract name
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0) {
        static_cast<void>(sendto(fd, lines.data(), lines.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                                 reinterpret_cast<const sockaddr *>(&address), size));
        close(fd);
    }
}

} // namespace gatewayd
