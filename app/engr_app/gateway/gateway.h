// A gateway to talk to, and what was heard of gateways.
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

struct gateway {
    std::string address;
    std::uint16_t port = lan_client::gateway_port;
    std::optional<lan_client::announcement> announced; ///< absent when it was named by address

    /// "ADDRESS", or "ADDRESS:PORT" when the port is not the usual one.
    [[nodiscard]] std::string place() const;

    /// How it is called in sentences: "gateway ID (ADDRESS)" or "gateway ADDRESS".
    [[nodiscard]] std::string name() const;

    /// How it is called in tables and for scripts: its id, or its place when that is not known.
    [[nodiscard]] std::string label() const;
};

/// The gateway of "ADDRESS" or "ADDRESS:PORT"; nothing when the text is neither, and so an id.
/// Throws a failure when the port is none.
[[nodiscard]] std::optional<gateway> parse_address(const std::string &text);

[[nodiscard]] gateway from_announcement(const lan_client::announcement &found);

/// What a listening was good for.
struct discovery_result {
    std::vector<lan_client::announcement> announcements; ///< one a gateway, in order of their ids
    unsigned unreadable = 0; ///< datagrams of gateways with other key seeds, or damaged

    [[nodiscard]] const lan_client::announcement *find_id(const std::string &id) const;
    [[nodiscard]] const lan_client::announcement *find_address(const std::string &address) const;
};

/// Why none of the gateways heard on the interface can be chosen. `wanted` is the id that was
/// looked for; empty: any.
[[nodiscard]] failure not_found(const discovery_result &found, const std::string &wanted,
                                const std::string &interface_name);

[[nodiscard]] nlohmann::json announcement_json(const lan_client::announcement &announced);

} // namespace engr_app
