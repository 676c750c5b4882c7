// What the program knows of gateways from earlier runs: where each was heard last, and which one
// the user has chosen with `use`. Both are conveniences: a file that is missing, broken or can't be
// written never fails a run.
#pragma once

#include "lan_client/discovery.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class console;

/** A gateway as it was heard last. */
struct known_gateway {
    lan_client::announcement announced;
    int64_t heard_s = 0;      /**< when, in seconds since 1970 */
    std::string link_address; /**< of the hardware that had its address; empty: not known */

    /** @return the seconds since it was heard; from the future counts as long ago */
    [[nodiscard]] int64_t age_s() const;
};

/** @return the gateways heard last, the newest first; warns of a broken file */
[[nodiscard]] std::vector<known_gateway> known_gateways(console &out);

[[nodiscard]] std::optional<known_gateway> find_known_id(console &out, const std::string &id);
[[nodiscard]] std::optional<known_gateway> find_known_address(console &out,
                                                              const std::string &address);

/** Keeps what was heard just now, and forgets the oldest beyond a bound. */
void keep_heard(console &out, const std::vector<lan_client::announcement> &heard);

/** Keeps the hardware that answered at the address of a gateway. */
void keep_link_address(console &out, const std::string &id, const std::string &link_address);

/** The gateway that `use` has chosen. */
struct gateway_in_use {
    std::string name;  /**< ID or ADDRESS[:PORT]; empty: none was chosen */
    int64_t age_s = 0; /**< how long ago */
};

[[nodiscard]] gateway_in_use chosen_by_use(console &out);

/** Remembers the gateway for later runs, or forgets it when the name is empty. @throws failure */
void choose_for_use(const std::string &name);

} // namespace engr_app
