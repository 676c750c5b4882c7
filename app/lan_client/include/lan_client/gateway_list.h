// The gateways that have announced themselves.
#pragma once

#include "lan_client/discovery.h"

#include <string>
#include <vector>

namespace lan_client {

/**
 * The latest announcement of each gateway, which is an id at an address. Anybody can announce any
 * number of gateways, so no more than max_discovered_gateways are kept, and no more than
 * max_discovered_at_one_address at one address.
 */
class gateway_list {
  public:
    /**
     * @param awaited  keep it even when there is no more room
     * @return whether it is a gateway that was not in the list and now is
     */
    bool note(const announcement &announced, bool awaited = false);

    /** @return each in the order of its first announcement, and with the interface of that */
    [[nodiscard]] const std::vector<announcement> &all() const { return all_; }

    /** @return the gateway of this id, at the first of its addresses; null when there is none */
    [[nodiscard]] const announcement *find_id(const std::string &id) const;

  private:
    std::vector<announcement> all_;
};

} // namespace lan_client
