// The Linux port under the contract tests: real sockets on an address of 127.0.0.0/8 that this
// process has for itself.
#include "port_harness.h"

#include "linux_port/port.h"
#include "platform/socket.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>

namespace contract_tests {

namespace {

/** 127.64.0.0 upwards, by process number: tests that run at the same time never meet. */
uint32_t own_address() {
    return 0x7F400000u | (static_cast<uint32_t>(getpid()) & 0x3FFFFFu);
}

sockaddr_in system_address(uint32_t address, uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
}

/** A system socket of a peer, confined to the loopback interface. */
int peer_socket(int type) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, "lo", 2) != 0 ||
        (type == SOCK_DGRAM && setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0)) {
        throw std::runtime_error("no socket for a peer");
    }
    return fd;
}

bool wait_for_input(int fd) {
    pollfd watched{fd, POLLIN, 0};
    return poll(&watched, 1, int{expectation_bound_ms}) > 0;
}

class linux_stream_peer : public stream_peer {
  public:
    explicit linux_stream_peer(int fd) : fd_(fd) {}
    ~linux_stream_peer() override { close(); }

    bool send(std::string_view bytes) override {
        const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        return sent == static_cast<ssize_t>(bytes.size());
    }

    std::string receive(size_t count) override {
        std::string bytes(count, '\0');
        size_t received = 0;
        while (received < count && wait_for_input(fd_)) {
            const ssize_t more = recv(fd_, bytes.data() + received, count - received, 0);
            if (more <= 0) {
                break;
            }
            received += static_cast<size_t>(more);
        }
        bytes.resize(received);
        return bytes;
    }

    bool wait_for_end() override {
        std::array<char, 65536> dropped;
        while (wait_for_input(fd_)) {
            if (recv(fd_, dropped.data(), dropped.size(), 0) <= 0) {
                return true;
            }
        }
        return false;
    }

    void close() override {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = -1;
    }

    void reset() override {
        const linger at_once{1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close();
    }

  private:
    int fd_;
};

class linux_datagram_peer : public datagram_peer {
  public:
    linux_datagram_peer() : fd_(peer_socket(SOCK_DGRAM)) {
        sockaddr_in local = system_address(INADDR_ANY, 0);
        socklen_t size = sizeof local;
        bind(fd_, reinterpret_cast<sockaddr *>(&local), size);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&local), &size);
        port_ = ntohs(local.sin_port);
    }
    ~linux_datagram_peer() override { close(fd_); }

    [[nodiscard]] uint32_t address() const override { return INADDR_LOOPBACK; }
    [[nodiscard]] uint16_t port() const override { return port_; }

    bool send_to(uint32_t address, uint16_t port, std::string_view bytes) override {
        const sockaddr_in to = system_address(address, port);
        return sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&to),
                      sizeof to) == static_cast<ssize_t>(bytes.size());
    }

    std::optional<datagram> receive() override {
        std::array<char, 65536> buffer;
        sockaddr_in from{};
        socklen_t size = sizeof from;
        if (!wait_for_input(fd_)) {
            return std::nullopt;
        }
        const ssize_t count = recvfrom(fd_, buffer.data(), buffer.size(), 0,
                                       reinterpret_cast<sockaddr *>(&from), &size);
        if (count < 0) {
            return std::nullopt;
        }
        return datagram{std::string(buffer.data(), static_cast<size_t>(count)),
                        ntohl(from.sin_addr.s_addr), ntohs(from.sin_port)};
    }

  private:
    int fd_;
    uint16_t port_ = 0;
};

class linux_harness : public port_harness {
  public:
    linux_harness() {
        in_addr address{htonl(own_address())};
        if (!linux_port::configure_network({"lo", inet_ntoa(address)})) {
            throw std::runtime_error("the network cannot be configured");
        }
    }
    ~linux_harness() override { linux_port::shutdown(); }

    void run(const std::function<void()> &body) override { body(); }

    [[nodiscard]] uint64_t now_ms() override {
        using namespace std::chrono;
        return static_cast<uint64_t>(
            duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
    }

    [[nodiscard]] uint32_t address() const override { return own_address(); }
    uint16_t free_port() override {
        // Below the ports that the system gives out; by process, so that no other test's broadcast
        // comes in.
        static auto last = static_cast<uint16_t>(10000 + getpid() % 1000 * 20);
        return last++;
    }

    std::unique_ptr<stream_peer> connect(uint16_t port) override {
        const int fd = peer_socket(SOCK_STREAM);
        // Small, so that the port's side notices each part that a test reads.
        const int receive_buffer = 32 * 1024;
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        const sockaddr_in to = system_address(own_address(), port);
        if (::connect(fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) {
            close(fd);
            return nullptr;
        }
        return std::make_unique<linux_stream_peer>(fd);
    }

    std::unique_ptr<datagram_peer> open_datagram_peer() override {
        return std::make_unique<linux_datagram_peer>();
    }
};

} // namespace

std::unique_ptr<port_harness> make_port_harness() {
    return std::make_unique<linux_harness>();
}

} // namespace contract_tests
