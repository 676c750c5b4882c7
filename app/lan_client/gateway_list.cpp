// A bounded list of gateways.
#include "lan_client/gateway_list.h"

#include "lan_client/limits.h"

#include <algorithm>

namespace lan_client {

bool gateway_list::note(const announcement &announced, bool awaited) {
    std::size_t at_same_address = 0;
    for (announcement &known : all_) {
        if (known.address != announced.address) {
            continue;
        }
        if (known.id == announced.id) {
            const std::string first_heard_on = known.interface_name;
            known = announced;
            known.interface_name = first_heard_on;
            return false;
        }
        ++at_same_address;
    }
    if (!awaited && (all_.size() >= max_discovered_gateways ||
                     at_same_address >= max_discovered_at_one_address)) {
        return false;
    }
    all_.push_back(announced);
    return true;
}

const announcement *gateway_list::find_id(const std::string &id) const {
    const auto found = std::ranges::find(all_, id, &announcement::id);
    return found == all_.end() ? nullptr : &*found;
}

} // namespace lan_client
