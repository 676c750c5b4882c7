// UDP sockets that stay on one interface or listen on all.
#include "udp_socket.h"

#include "bind_to_interface.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <arpa/inet.h>
#include <asio/ip/udp.hpp>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace lan_client {
namespace {

using asio::ip::udp;

error open_on(udp::socket &socket, const std::string &interface_name) {
    asio::error_code failed;
    socket.open(udp::v4(), failed);
    if (failed) {
        return {error_kind::unreachable, failed.message()};
    }
    return bind_to_interface(socket.native_handle(), interface_name);
}

std::string interface_of(msghdr &message) {
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == IPPROTO_IP && part->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(part), sizeof info);
            std::array<char, IF_NAMESIZE> name{};
            const auto index = static_cast<unsigned>(info.ipi_ifindex);
            return if_indextoname(index, name.data()) == nullptr ? "" : name.data();
        }
    }
    return "";
}

} // namespace

class udp_listener::socket : public std::enable_shared_from_this<socket> {
  public:
    socket(event_loop &loop, callback on_datagram)
        : on_datagram_(std::move(on_datagram)), socket_(loop.context()) {}

    error open(const std::string &interface_name, uint16_t port) {
        if (error problem = open_on(socket_, interface_name)) {
            return problem;
        }
        asio::error_code failed;
        // With it the system hands each broadcast to every listener on the port.
        socket_.set_option(udp::socket::reuse_address(true), failed);
        socket_.bind({asio::ip::address_v4::any(), port}, failed);
        const int on = 1;
        if (!failed &&
            setsockopt(socket_.native_handle(), IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0) {
            failed = {errno, asio::system_category()};
        }
        if (failed) {
            return {error_kind::unreachable,
                    "UDP port " + std::to_string(port) + ": " + failed.message()};
        }
        receive_next();
        return {};
    }

    void close() {
        closed_ = true;
        asio::error_code ignored;
        socket_.close(ignored);
    }

  private:
    void receive_next() {
        socket_.async_wait(udp::socket::wait_read,
                           [self = shared_from_this()](const asio::error_code &failed) {
                               if (!self->closed_ && !failed) {
                                   self->receive();
                               }
                               if (!self->closed_) {
                                   self->receive_next();
                               }
                           });
    }

    // One datagram; the interface that it arrived on comes beside it, which Asio has no call for.
    void receive() {
        sockaddr_in sender{};
        std::array<iovec, 1> bytes{{{datagram_.data(), datagram_.size()}}};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(in_pktinfo))> control{};
        msghdr message{};
        message.msg_name = &sender;
        message.msg_namelen = sizeof sender;
        message.msg_iov = bytes.data();
        message.msg_iovlen = bytes.size();
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t count = recvmsg(socket_.native_handle(), &message, MSG_DONTWAIT);
        if (count < 0) {
            return;
        }
        std::array<char, INET_ADDRSTRLEN> address{};
        inet_ntop(AF_INET, &sender.sin_addr, address.data(), address.size());
        on_datagram_({datagram_.data(), static_cast<std::size_t>(count)},
                     {address.data(), interface_of(message)});
    }

    callback on_datagram_;
    udp::socket socket_;
    std::array<char, 64 * 1024> datagram_;
    bool closed_ = false;
};

udp_listener::udp_listener(event_loop &loop, callback on_datagram)
    : socket_(std::make_shared<socket>(loop, std::move(on_datagram))) {}

udp_listener::~udp_listener() {
    socket_->close();
}

error udp_listener::open(const std::string &interface_name, uint16_t port) {
    return socket_->open(interface_name, port);
}

error send_datagram(event_loop &loop, const std::string &interface_name, const std::string &address,
                    uint16_t port, std::string_view bytes) {
    asio::error_code failed;
    const auto target = asio::ip::make_address_v4(address, failed);
    if (failed) {
        return {error_kind::bad_address, address};
    }
    udp::socket socket(loop.context());
    if (error problem = open_on(socket, interface_name)) {
        return problem;
    }
    socket.set_option(udp::socket::broadcast(true), failed);
    socket.send_to(asio::buffer(bytes), {target, port}, 0, failed);
    return failed ? error{error_kind::unreachable, failed.message()} : error{};
}

} // namespace lan_client
