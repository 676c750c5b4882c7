// The discovery listener and the reading of its datagrams.
#include "lan_client/discovery.h"

#include "bind_to_interface.h"
#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "lan_client/frame_types.h"
#include "lan_client/utf8.h"

#include <array>
#include <utility>

#include <asio/ip/udp.hpp>
#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

std::string text_member(const nlohmann::json &object, const char *name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_string() ? member->get<std::string>() : "";
}

std::int64_t number_member(const nlohmann::json &object, const char *name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_number_integer() ? member->get<std::int64_t>() : 0;
}

bool true_member(const nlohmann::json &object, const char *name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_boolean() && member->get<bool>();
}

bool read_announcement(std::string_view text, announcement &said) {
    const auto object = nlohmann::json::parse(to_utf8(text), nullptr, false);
    if (!object.is_object() || !object.contains("gwId")) {
        return false;
    }
    said.told_address = text_member(object, "ip");
    said.id = text_member(object, "gwId");
    said.product_key = text_member(object, "productKey");
    said.version = text_member(object, "version");
    said.ability = number_member(object, "ablilty"); // spelt so on the wire
    said.activated = number_member(object, "active") == 2;
    said.needs_wifi_setup = true_member(object, "wf_cfg");
    return true;
}

} // namespace

parsed_datagram parse_datagram(std::string_view bytes, std::string_view address,
                               const traffic_observer &observer) {
    parsed_datagram result;
    const decode_result decoded = decode_frame(bytes);
    const frame &got = decoded.decoded;
    if (decoded.status != decode_status::whole || decoded.consumed_bytes != bytes.size() ||
        got.type != frame_type::udp_discovery) {
        return result;
    }
    const std::optional<std::string> text = decrypt_text(discovery_key(), got.payload);
    if (observer) {
        observer({.peer = address,
                  .discovery = true,
                  .number = got.number,
                  .type = got.type,
                  .ret = got.ret,
                  .crc_matches = got.crc_matches,
                  .state = text ? payload_state::decrypted : payload_state::unreadable,
                  .wire_payload = got.payload,
                  .text = text ? std::string_view(*text) : std::string_view()});
    }
    result.kind = datagram_kind::unreadable;
    if (text && got.crc_matches && read_announcement(*text, result.said)) {
        result.kind = datagram_kind::announcement;
        result.said.address = address;
    }
    return result;
}

class discovery_listener::socket : public std::enable_shared_from_this<socket> {
  public:
    socket(event_loop &loop, callback heard, traffic_observer observer)
        : heard_(std::move(heard)), observer_(std::move(observer)), socket_(loop.context()) {}

    error open(const std::string &interface_name) {
        asio::error_code failed;
        socket_.open(asio::ip::udp::v4(), failed);
        if (failed) {
            return {error_kind::unreachable, failed.message()};
        }
        if (error problem = bind_to_interface(socket_.native_handle(), interface_name)) {
            return problem;
        }
        // With it the system hands each broadcast to every listener on the port.
        socket_.set_option(asio::ip::udp::socket::reuse_address(true), failed);
        socket_.bind({asio::ip::address_v4::any(), discovery_port}, failed);
        if (failed) {
            return {error_kind::unreachable, "UDP port 6667: " + failed.message()};
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
                    self->heard_(parse_datagram({self->datagram_.data(), count},
                                                self->sender_.address().to_string(),
                                                self->observer_));
                }
                if (!self->closed_) {
                    self->receive_next();
                }
            });
    }

    callback heard_;
    traffic_observer observer_;
    asio::ip::udp::socket socket_;
    asio::ip::udp::endpoint sender_;
    std::array<char, 64 * 1024> datagram_;
    bool closed_ = false;
};

discovery_listener::discovery_listener(event_loop &loop, callback heard, traffic_observer observer)
    : socket_(std::make_shared<socket>(loop, std::move(heard), std::move(observer))) {}

discovery_listener::~discovery_listener() {
    socket_->close();
}

error discovery_listener::open(const std::string &interface_name) {
    return socket_->open(interface_name);
}

} // namespace lan_client
