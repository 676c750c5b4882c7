// Reading of discovery datagrams.
#include "lan_client/discovery.h"

#include "broadcast_frame.h"
#include "lan_client/crypto.h"
#include "lan_client/frame_types.h"
#include "lan_client/limits.h"
#include "udp_socket.h"
#include "utf8.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

std::string text_member(const nlohmann::json &object, const char *name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_string() ? member->get<std::string>() : "";
}

int64_t number_member(const nlohmann::json &object, const char *name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_number_integer() ? member->get<int64_t>() : 0;
}

bool true_member(const nlohmann::json &object, const char *name) {
    const auto member = object.find(name);
    return member != object.end() && member->is_boolean() && member->get<bool>();
}

bool read_announcement(std::string_view text, announcement &content) {
    const auto object = nlohmann::json::parse(to_utf8(text), nullptr, false);
    if (!object.is_object() || !object.contains("gwId")) {
        return false;
    }
    content.announced_address = text_member(object, "ip");
    content.id = text_member(object, "gwId");
    content.product_key = text_member(object, "productKey");
    content.version = text_member(object, "version");
    content.ability = number_member(object, "ablilty"); // spelt so on the wire
    content.activated = number_member(object, "active") == 2;
    content.needs_wifi_setup = true_member(object, "wf_cfg");
    return true;
}

} // namespace

parsed_datagram parse_datagram(std::string_view bytes, std::string_view address,
                               const traffic_observer &observer, const aes_key &key) {
    if (bytes.size() > max_discovery_bytes) {
        return {};
    }
    const broadcast_frame got = read_broadcast(
        bytes, address, frame_type::udp_discovery,
        [&key](std::string_view payload) { return decrypt_text(key, payload); }, observer);
    parsed_datagram result;
    if (!got.of_type) {
        return result;
    }
    result.kind = datagram_kind::unreadable;
    if (got.text && read_announcement(*got.text, result.content)) {
        result.kind = datagram_kind::announcement;
        result.content.address = address;
    }
    return result;
}

discovery_listener::discovery_listener(event_loop &loop, callback on_datagram,
                                       traffic_observer observer, const aes_key &key)
    : listener_(std::make_unique<udp_listener>(
          loop, [on_datagram = std::move(on_datagram), observer = std::move(observer),
                 key](std::string_view bytes, const datagram_source &source) {
              parsed_datagram parsed = parse_datagram(bytes, source.address, observer, key);
              parsed.content.interface_name = source.interface_name;
              on_datagram(parsed);
          })) {}

discovery_listener::~discovery_listener() = default;

error discovery_listener::open(const std::string &interface_name) {
    return listener_->open(interface_name, discovery_port);
}

} // namespace lan_client
