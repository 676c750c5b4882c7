// Gateways: how they are named, and what a discovery has found.
#pragma once

#include "base/failure.h"
#include "lan_client/client.h"
#include "lan_client/discovery.h"

#include <chrono>
#include <cstdint>
#include <functional>
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
    bool remembered = false; /**< it was heard in an earlier run, and not in this one */

    /** @return "ADDRESS", or "ADDRESS:PORT" when the port is not the usual one */
    [[nodiscard]] std::string place() const;

    /** @return its name in sentences: "gateway ID (ADDRESS)" or "gateway ADDRESS" */
    [[nodiscard]] std::string name() const;

    /** @return its name in tables and for scripts: the id, or the place when that is not known */
    [[nodiscard]] std::string label() const;

    /** @return the same for names of files; what the network says must not choose a path */
    [[nodiscard]] std::string file_mark() const;
};

/**
 * @param text  "ADDRESS", "ADDRESS:PORT" or an id
 * @return nothing when it is an id; throws a failure of wrong usage when it can be neither
 */
[[nodiscard]] std::optional<gateway> parse_address(const std::string &text);

/** @return whether the text is ADDRESS or ADDRESS:PORT */
[[nodiscard]] bool is_gateway_address(const std::string &text);

[[nodiscard]] gateway from_announcement(const lan_client::announcement &found);

using announcement_rule = std::function<bool(const lan_client::announcement &)>;

/** How to listen for announcements. */
struct listening {
    std::string interface_name; /**< empty: all interfaces */
    std::chrono::milliseconds limit;
    announcement_rule enough; /**< ends it early when true of one; may be absent */
    std::function<void(const lan_client::announcement &)>
        on_new; /**< called with each gateway once; may be absent */
};

/** What was announced while the app listened. */
struct discovery_result {
    std::string interface_name; /**< where it listened; empty: on all interfaces */
    std::chrono::milliseconds limit{0};
    std::vector<lan_client::announcement>
        announcements;       /**< one a gateway, in order of their ids */
    unsigned unreadable = 0; /**< datagrams of gateways with other key seeds, or damaged */

    [[nodiscard]] const lan_client::announcement *find_id(const std::string &id) const;
    [[nodiscard]] const lan_client::announcement *find_address(const std::string &address) const;
};

/** @return the interface in words; for an empty name those that are up: "eth0 and lo" */
[[nodiscard]] std::string interfaces_text(const std::string &interface_name);

/**
 * @param found   what was announced
 * @param wanted  the id that was searched for; empty: any
 * @return why none of those gateways can be chosen, and what to do about it
 */
[[nodiscard]] failure not_found(const discovery_result &found, const std::string &wanted);

/** @return how many datagrams could not be read, and why not; empty when there were none */
[[nodiscard]] std::string unreadable_note(const discovery_result &found);

/** @return an announcement for scripts */
[[nodiscard]] nlohmann::json announcement_json(const lan_client::announcement &announced);

} // namespace engr_app
