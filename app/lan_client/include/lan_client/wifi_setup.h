// Giving a gateway its Wi-Fi network, from the first datagram to the outcome.
#pragma once

#include "lan_client/provisioning.h"
#include "lan_client/wifi_candidates.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace lan_client {

struct wifi_setup_order {
    wifi_configuration network;
    payload_coding coding = payload_coding::encrypted;
    std::string address = broadcast_address; /**< IPv4, of the gateway or of all */

    /** That is sent on, and that failures are heard on; empty: the routing table's, and all. */
    std::string interface_name;
    std::string new_interface_name; /**< that the gateway is to appear on; empty: any */

    /** It is sent so many times, at least once: datagrams get lost, and nobody confirms them. */
    unsigned times = 10;
    std::chrono::milliseconds interval{1000};
    std::chrono::milliseconds limit{60000}; /**< for the outcome, from the first datagram on */

    aes_key configuration = configuration_key();
    aes_key discovery = discovery_key();
};

enum class wifi_setup_end {
    joined,      /**< the gateway has announced itself on its network */
    unconfirmed, /**< a gateway has appeared that may be another one */
    failed,      /**< a gateway has reported that it could not join the network */
    silent,      /**< nothing was heard of it until the limit */
};

struct wifi_setup_outcome {
    wifi_setup_end end = wifi_setup_end::silent;
    std::optional<announcement> appeared; /**< when it has joined, or is unconfirmed */
    std::optional<wifi_failure> failure;  /**< when it failed */
    unsigned sent = 0;                    /**< datagrams that the system has taken */
    unsigned unreadable = 0;              /**< received: damaged, or of other key seeds */
};

/** Used on the loop's thread. */
class wifi_setup {
  public:
    /** How many datagrams were sent, and why the last one could not be. */
    using sent_callback = std::function<void(unsigned sent, const error &problem)>;
    /** Called once; may destroy the setup. */
    using end_callback = std::function<void(const wifi_setup_outcome &outcome)>;

    /**
     * @param loop    must exist as long as this
     * @param before  with what was announced so far
     */
    wifi_setup(event_loop &loop, wifi_setup_order order, wifi_candidates before,
               sent_callback on_sent, end_callback on_end, traffic_observer observer = {});
    ~wifi_setup();
    wifi_setup(const wifi_setup &) = delete;
    wifi_setup &operator=(const wifi_setup &) = delete;

    /**
     * Listens and sends the first datagram.
     *
     * @return why it can't; then there is no outcome
     */
    [[nodiscard]] error start();

  private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace lan_client
