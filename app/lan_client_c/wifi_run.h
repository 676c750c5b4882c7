// Giving a gateway its Wi-Fi network, as one request of a handle.
#pragma once

#include "event_queue.h"
#include "lan_client/discovery.h"
#include "lan_client/event_loop.h"
#include "lan_client/wifi_setup.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace lan_client_c {

/** Listens for gateways that need Wi-Fi, then sends. Used on the loop's thread. */
class wifi_run {
  public:
    /**
     * @param gateway_id  of the gateway that is to get the network; empty: whichever needs one
     * @param listen      for how long at most
     * @param force       send even when no gateway says that it needs Wi-Fi
     */
    wifi_run(engr_client &client, uint32_t id, lan_client::wifi_setup_order order,
             const std::string &gateway_id, std::chrono::milliseconds listen, bool force);

    void start();
    [[nodiscard]] bool has_ended() const { return ended_; }

  private:
    void send();
    [[nodiscard]] bool choose_interface();
    void take_outcome(const lan_client::wifi_setup_outcome &outcome);
    void end(engr_client_error why, const std::string &text);
    void end(std::unique_ptr<owned_event> event);

    engr_client &client_;
    uint32_t id_;
    lan_client::wifi_setup_order order_;
    std::chrono::milliseconds listen_;
    bool force_;
    bool ended_ = false;
    lan_client::wifi_candidates candidates_;
    lan_client::timer listened_;
    std::optional<lan_client::discovery_listener> listener_; // until it is sent
    std::optional<lan_client::wifi_setup> setup_;
};

} // namespace lan_client_c
