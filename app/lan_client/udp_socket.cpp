// UDP sockets that stay on one interface.
#include "udp_socket.h"

#include "bind_to_interface.h"

#include <array>
#include <utility>

#include <asio/ip/udp.hpp>

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
        socket_.async_receive_from(
            asio::buffer(datagram_), sender_,
            [self = shared_from_this()](const asio::error_code &failed, std::size_t count) {
                if (self->closed_) {
                    return;
                }
                if (!failed) {
                    self->on_datagram_({self->datagram_.data(), count},
                                       self->sender_.address().to_string());
                }
                if (!self->closed_) {
                    self->receive_next();
                }
            });
    }

    callback on_datagram_;
    udp::socket socket_;
    udp::endpoint sender_;
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
