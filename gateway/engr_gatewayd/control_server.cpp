#include "control_server.h"

#include "data_dir.h"
#include "platform/clock.h"
#include "verbs.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace gatewayd {
namespace {

using steady_clock = std::chrono::steady_clock;

constexpr std::size_t clients_max = 16;
constexpr std::size_t request_bytes_max = 1 << 20;
/** Rest after a failed accept, so that a lack of descriptors does not become a busy loop. */
constexpr uint32_t accept_pause_ms = 50;
/** How long a client has for its request and for reading the answer, each. */
constexpr auto client_timeout = std::chrono::seconds(5);

int listen_here() {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(control::socket_name).copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(control::socket_name);
    // The mode is right from the first moment on: the socket is made with it.
    const mode_t old_mask = umask(0177);
    const bool is_bound =
        fd >= 0 && bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    umask(old_mask);
    if (!is_bound || listen(fd, 16) != 0) {
        const int error = errno;
        close(fd);
        throw std::runtime_error(std::string("cannot open the control socket: ") +
                                 std::strerror(error));
    }
    return fd;
}

/** Whether the other end belongs to this user, or to root. */
bool is_own_user(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

} // namespace

/** One connection: sends one line, gets one. */
struct control_server::client {
    explicit client(int connection) : fd(connection) {}
    client(client &&other) noexcept
        : fd(std::exchange(other.fd, -1)), input(std::move(other.input)),
          output(std::move(other.output)), deadline(other.deadline) {}
    client &operator=(client &&other) noexcept {
        std::swap(fd, other.fd);
        input.swap(other.input);
        output.swap(other.output);
        deadline = other.deadline;
        return *this;
    }
    ~client() {
        if (fd >= 0) {
            close(fd);
        }
    }

    /**
     * Reads or writes as much as is possible without waiting.
     *
     * @return false when the connection has served its purpose
     */
    bool advance(const handler &answer) {
        if (output.empty() && !read_request(answer)) {
            return false;
        }
        return output.empty() || write_reply();
    }

    bool read_request(const handler &answer) {
        char part[4096];
        const ssize_t count = recv(fd, part, sizeof part, 0);
        if (count <= 0) {
            return count < 0 && (errno == EAGAIN || errno == EINTR);
        }
        input.append(part, static_cast<std::size_t>(count));
        const std::size_t end = input.find('\n');
        if (end == std::string::npos && input.size() <= request_bytes_max) {
            return true;
        }
        output = end == std::string::npos ? control::error_line("the request is too long", true)
                                          : answer(std::string_view(input).substr(0, end));
        deadline = steady_clock::now() + client_timeout;
        return true;
    }

    bool write_reply() {
        const ssize_t count = send(fd, output.data(), output.size(), MSG_NOSIGNAL);
        if (count < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        output.erase(0, static_cast<std::size_t>(count));
        return !output.empty();
    }

    int fd;
    std::string input;
    std::string output;
    steady_clock::time_point deadline = steady_clock::now() + client_timeout;
};

control_server::control_server(handler answer)
    : answer_(std::move(answer)), listen_fd_(listen_here()), stop_fd_(eventfd(0, EFD_CLOEXEC)) {
    const thrd_param_t param{.stack_size = 256 * 1024, .priority = 1, .name = "control"};
    const auto entry = [](void *self) { static_cast<control_server *>(self)->serve(); };
    if (stop_fd_ < 0 || CreateAndStart(&thread_, nullptr, nullptr, entry, this, &param) != 0) {
        throw std::runtime_error("cannot start the control thread");
    }
}

control_server::~control_server() {
    const uint64_t one = 1;
    if (write(stop_fd_, &one, sizeof one) == sizeof one) {
        DeleteThrdHandle(thread_);
    }
    unlink(control::socket_name);
    close(listen_fd_);
    close(stop_fd_);
}

void control_server::serve() {
    std::vector<client> clients;
    for (;;) {
        std::vector<pollfd> watched{{stop_fd_, POLLIN, 0}};
        watched.push_back({clients.size() < clients_max ? listen_fd_ : -1, POLLIN, 0});
        auto wake = steady_clock::time_point::max();
        for (const client &each : clients) {
            watched.push_back(
                {each.fd, static_cast<short>(each.output.empty() ? POLLIN : POLLOUT), 0});
            wake = std::min(wake, each.deadline);
        }
        int wait_ms = -1;
        if (!clients.empty()) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(wake - steady_clock::now());
            wait_ms = static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
        }
        poll(watched.data(), watched.size(), wait_ms);
        if (watched[0].revents != 0) {
            return;
        }

        const auto now = steady_clock::now();
        std::vector<client> remaining;
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const bool is_ready = watched[i + 2].revents != 0;
            if (clients[i].deadline > now && (!is_ready || clients[i].advance(answer_))) {
                remaining.push_back(std::move(clients[i]));
            }
        }
        clients = std::move(remaining);
        if (watched[1].revents != 0) {
            client arrived(accept4(listen_fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
            if (arrived.fd < 0) {
                kelo_hal_system_sleep(accept_pause_ms);
            } else if (is_own_user(arrived.fd)) {
                clients.push_back(std::move(arrived));
            }
        }
    }
}

} // namespace gatewayd
