// Giving a gateway in access-point mode its Wi-Fi network, by datagrams that it never answers. It
// broadcasts a failure; a success shows when it announces itself on the new network. wifi_setup.h
// goes all the way from here.
#pragma once

#include "lan_client/crypto.h"
#include "lan_client/errors.h"
#include "lan_client/event_loop.h"
#include "lan_client/frame_types.h"
#include "lan_client/traffic.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace lan_client {

inline constexpr uint16_t configuration_port = 6669;
inline constexpr uint16_t wifi_failure_port = 6670;

/** Longest datagram that a gateway takes. */
inline constexpr std::size_t max_configuration_bytes = 256;

/** Longest name of a Wi-Fi network. */
inline constexpr std::size_t max_network_name_bytes = 32;

/** Reaches every host of an interface. */
inline constexpr const char *broadcast_address = "255.255.255.255";

struct wifi_configuration {
    std::string network;  /**< name of the network, UTF-8 */
    std::string password; /**< UTF-8; empty: the network is open */
    std::string token;    /**< UTF-8 */
};

/** Whether the name has 1 to max_network_name_bytes bytes and all texts are UTF-8. */
[[nodiscard]] bool is_valid(const wifi_configuration &chosen);

/** Report of a gateway that could not join the network. */
struct wifi_failure {
    std::string address;           /**< its sender */
    std::optional<int64_t> result; /**< absent when the text is not valid */
    std::string description;
};

/** The payload of a configuration before encryption. */
[[nodiscard]] std::string configuration_text(const wifi_configuration &chosen);

/** Size of the datagram that carries such a text, which must not exceed max_configuration_bytes. */
[[nodiscard]] std::size_t configuration_bytes(std::string_view text, payload_coding coding);

/**
 * Sends configurations through one interface and receives failure reports there; without one it
 * sends as the routing table has it and receives on all.
 */
class provisioning_channel {
  public:
    /** Called with each failure; with nothing when it is damaged or encrypted with other seeds. */
    using callback = std::function<void(const std::optional<wifi_failure> &)>;

    provisioning_channel(event_loop &loop, callback on_failure, traffic_observer observer = {},
                         const aes_key &key = configuration_key());
    ~provisioning_channel();
    provisioning_channel(const provisioning_channel &) = delete;
    provisioning_channel &operator=(const provisioning_channel &) = delete;

    /** Starts to listen; the error says why it can't. */
    [[nodiscard]] error open(const std::string &interface_name);

    /** Sends the text once; `address` may be broadcast_address. */
    [[nodiscard]] error send(std::string_view text, payload_coding coding,
                             const std::string &address);

  private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace lan_client
