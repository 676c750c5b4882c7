// Finding gateways by the datagrams that they broadcast every 5 seconds.
#pragma once

#include "lan_client/crypto.h"
#include "lan_client/errors.h"
#include "lan_client/event_loop.h"
#include "lan_client/traffic.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace lan_client {

class udp_listener;

inline constexpr uint16_t discovery_port = 6667;

/** How often a gateway announces itself; listening for longer finds all that can be found. */
inline constexpr std::chrono::milliseconds discovery_period{5000};

/** Content of one discovery datagram. The texts are valid UTF-8, otherwise as received. */
struct announcement {
    std::string address;           /**< sender of the datagram: where to connect */
    std::string interface_name;    /**< that it arrived on; empty: not known */
    std::string announced_address; /**< what the datagram says */
    std::string id;
    std::string product_key;
    std::string version;
    int64_t ability = 0;
    bool activated = false; /**< the TCP key is then the gateway's local key */
    bool needs_wifi_setup = false;
};

enum class datagram_kind {
    announcement,
    foreign,    /**< not a discovery frame */
    unreadable, /**< a discovery frame of a gateway with other key seeds, or damaged */
};

struct parsed_datagram {
    datagram_kind kind = datagram_kind::foreign;
    announcement content; /**< of an announcement */
};

/** Parses one datagram from `address`, and shows it to the observer if there is one. */
[[nodiscard]] parsed_datagram parse_datagram(std::string_view bytes, std::string_view address,
                                             const traffic_observer &observer = {},
                                             const aes_key &key = discovery_key());

/** Listens on UDP port 6667, beside other listeners on the same machine. */
class discovery_listener {
  public:
    using callback = std::function<void(const parsed_datagram &)>;

    discovery_listener(event_loop &loop, callback on_datagram, traffic_observer observer = {},
                       const aes_key &key = discovery_key());
    ~discovery_listener();
    discovery_listener(const discovery_listener &) = delete;
    discovery_listener &operator=(const discovery_listener &) = delete;

    /**
     * Starts to listen; the error says why it can't.
     *
     * @param interface_name  empty: all interfaces
     */
    [[nodiscard]] error open(const std::string &interface_name);

  private:
    std::unique_ptr<udp_listener> listener_;
};

} // namespace lan_client
