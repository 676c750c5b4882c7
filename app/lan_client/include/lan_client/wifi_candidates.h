// Which gateways wait for a Wi-Fi network, and which of them has joined it, by what they announce.
#pragma once

#include "lan_client/discovery.h"
#include "lan_client/gateway_list.h"

#include <cstddef>
#include <set>
#include <string>

namespace lan_client {

/**
 * A gateway never answers a configuration. That it has joined its network shows only by an
 * announcement without needs_wifi_setup, and so only to an app that knows what was announced
 * before.
 */
class wifi_candidates {
  public:
    /** Whether there is a gateway to send a network to. */
    enum class readiness {
        ready,
        nobody_waits, /**< no gateway is named, and none says that it needs Wi-Fi */
        not_heard,    /**< the gateway named has not been heard */
        not_waiting,  /**< the gateway named does not say that it needs Wi-Fi */
    };

    /** What an announcement says after the network was sent. */
    enum class sign {
        none,
        unsure, /**< a gateway has appeared that had not said that it needs Wi-Fi */
        joined, /**< the right gateway has joined a network */
    };

    /**
     * @param interface_name  a gateway waits only where this is; empty: anywhere
     * @param wanted_id       of the gateway that is to get its network; empty: whichever needs one
     */
    wifi_candidates(std::string interface_name, std::string wanted_id);

    /**
     * Takes an announcement that came before the network was sent.
     *
     * @return whether it is that of the gateway named, which waits: nothing more needs to be heard
     */
    bool note(const announcement &announced);

    /** Takes an announcement that came after that. */
    [[nodiscard]] sign judge(const announcement &announced);

    [[nodiscard]] readiness state() const;

    /** @return whether one of the gateways that may appear can be told for the right one */
    [[nodiscard]] bool can_recognise() const;

    /** @return where the gateways that may get the network were heard; empty: not known */
    [[nodiscard]] const std::set<std::string> &interfaces() const { return interfaces_; }

    /** @return how many gateways were heard before the network was sent */
    [[nodiscard]] std::size_t heard() const { return before_.all().size(); }

  private:
    bool note_waiting(const announcement &announced);
    [[nodiscard]] bool had_network(const announcement &now) const;

    std::string interface_name_;
    std::string wanted_id_;
    gateway_list before_;
    std::set<std::string> waiting_ids_; // at most max_discovered_gateways
    std::set<std::string> interfaces_;
};

} // namespace lan_client
