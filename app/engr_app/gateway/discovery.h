// Gateways: how they are named, and what a discovery has found.
#pragma once

#include "base/failure.h"
#include "lan_client/client.h"
#include "lan_client/discovery.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/** A gateway by its address. */
struct gateway {
    std::string address;
    uint16_t port = lan_client::gateway_port;
    std::optional<lan_client::announcement> announced; /**< absent when it was named by address */

    /** @return "ADDRESS", or "ADDRESS:PORT" when the port is not the usual one */
    [[nodiscard]] std::string place() const;

    /** @return its name in sentences: "gateway ID (ADDRESS)" or "gateway ADDRESS" */
    [[nodiscard]] std::string name() const;

    /** @return its name in tables and for scripts: the id, or the place when that is not known */
    [[nodiscard]] std::string label() const;
};

/**
 * @param text  "ADDRESS", "ADDRESS:PORT" or an id
 * @return nothing when it is an id; throws a failure of wrong usage when the port is none
 */
[[nodiscard]] std::optional<gateway> parse_address(const std::string &text);

[[nodiscard]] gateway from_announcement(const lan_client::announcement &found);

/** What was announced while the app listened. */
struct discovery_result {
    std::vector<lan_client::announcement>
        announcements;       /**< one a gateway, in order of their ids */
    unsigned unreadable = 0; /**< datagrams of gateways with other key seeds, or damaged */

    [[nodiscard]] const lan_client::announcement *find_id(const std::string &id) const;
    [[nodiscard]] const lan_client::announcement *find_address(const std::string &address) const;
};

/**
 * @param found   what was announced on the interface
 * @param wanted  the id that was searched for; empty: any
 * @return why none of those gateways can be chosen, and what to do about it
 */
[[nodiscard]] failure not_found(const discovery_result &found, const std::string &wanted,
                                const std::string &interface_name);

/** @return an announcement for scripts */
[[nodiscard]] nlohmann::json announcement_json(const lan_client::announcement &announced);

} // namespace engr_app
