// Frames of the configuration and of its failure.
#include "lan_client/provisioning.h"

#include "broadcast_frame.h"
#include "lan_client/crypto.h"
#include "lan_client/frame.h"
#include "udp_socket.h"
#include "utf8.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace lan_client {
namespace {

constexpr std::string_view failure_start = "{\"result\":";

std::optional<std::string> open_failure(const aes_key &key, std::string_view payload) {
    std::optional<std::string> text = decrypt(key, payload);
    // A wrong key yields a valid padding now and then.
    return text && text->starts_with(failure_start) ? text : std::nullopt;
}

wifi_failure read_failure(std::string_view text, const std::string &address) {
    // Gateways cut a long text, which then is no JSON.
    wifi_failure failure{address, {}, to_utf8(text)};
    auto object = nlohmann::json::parse(failure.description, nullptr, false);
    if (object.is_object() && object["result"].is_number_integer()) {
        failure.result = object["result"].get<int64_t>();
        failure.description =
            object.value("desc", nlohmann::json()).is_string() ? object["desc"] : "";
    }
    return failure;
}

} // namespace

bool is_valid(const wifi_configuration &chosen) {
    return !chosen.network.empty() && chosen.network.size() <= max_network_name_bytes &&
           is_utf8(chosen.network) && is_utf8(chosen.password) && is_utf8(chosen.token);
}

std::string configuration_text(const wifi_configuration &chosen) {
    nlohmann::ordered_json object{{"ssid", chosen.network}, {"token", chosen.token}};
    if (!chosen.password.empty()) {
        object["passwd"] = chosen.password;
    }
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::size_t configuration_bytes(std::string_view text, payload_coding coding) {
    const std::size_t padding_bytes =
        coding == payload_coding::plain ? 0 : key_bytes - text.size() % key_bytes;
    return request_overhead_bytes + text.size() + padding_bytes;
}

struct provisioning_channel::state {
    event_loop &loop;
    callback on_failure;
    traffic_observer observer;
    aes_key key;
    std::string interface_name;
    udp_listener listener;

    state(event_loop &on, callback called, traffic_observer observing, const aes_key &given_key)
        : loop(on), on_failure(std::move(called)), observer(std::move(observing)), key(given_key),
          listener(on, [this](std::string_view bytes, const datagram_source &source) {
              const broadcast_frame got = read_broadcast(
                  bytes, source.address, frame_type::udp_wifi_err,
                  [this](std::string_view payload) { return open_failure(key, payload); },
                  observer);
              if (got.of_type) {
                  on_failure(got.text ? std::optional(read_failure(*got.text, source.address))
                                      : std::nullopt);
              }
          }) {}
};

provisioning_channel::provisioning_channel(event_loop &loop, callback on_failure,
                                           traffic_observer observer, const aes_key &key)
    : state_(std::make_unique<state>(loop, std::move(on_failure), std::move(observer), key)) {}

provisioning_channel::~provisioning_channel() = default;

error provisioning_channel::open(const std::string &interface_name) {
    state_->interface_name = interface_name;
    return state_->listener.open(interface_name, wifi_failure_port);
}

error provisioning_channel::send(std::string_view text, payload_coding coding,
                                 const std::string &address) {
    const bool plain = coding == payload_coding::plain;
    const std::string payload = plain ? std::string(text) : encrypt(state_->key, text);
    // The gateway uses one number for encrypted configurations and for their failure.
    const uint32_t type = plain ? frame_type::ap_nw_cfg : frame_type::udp_wifi_err;
    constexpr uint32_t number = 1;
    const std::string bytes = encode_request(number, type, payload);
    if (bytes.size() > max_configuration_bytes) {
        return {error_kind::too_large, std::to_string(bytes.size())};
    }
    const error problem =
        send_datagram(state_->loop, state_->interface_name, address, configuration_port, bytes);
    if (!problem && state_->observer) {
        const std::string peer = address + ":" + std::to_string(configuration_port);
        state_->observer({.sent = true,
                          .peer = peer,
                          .number = number,
                          .type = type,
                          .state = plain ? payload_state::plain : payload_state::decrypted,
                          .wire_payload = payload,
                          .text = text});
    }
    return problem;
}

} // namespace lan_client
