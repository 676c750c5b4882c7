// What announcements say about Wi-Fi.
#include "lan_client/wifi_candidates.h"

#include "lan_client/limits.h"

#include <algorithm>
#include <utility>

namespace lan_client {

wifi_candidates::wifi_candidates(std::string interface_name, std::string wanted_id)
    : interface_name_(std::move(interface_name)), wanted_id_(std::move(wanted_id)) {}

bool wifi_candidates::note(const announcement &announced) {
    const bool meant = !wanted_id_.empty() && announced.id == wanted_id_;
    before_.note(announced, meant);
    return note_waiting(announced) && meant;
}

bool wifi_candidates::note_waiting(const announcement &announced) {
    const bool here = interface_name_.empty() || announced.interface_name == interface_name_;
    const bool meant = announced.id == wanted_id_;
    const bool has_room = meant || waiting_ids_.size() < max_discovered_gateways;
    if (!announced.needs_wifi_setup || !here || !has_room) {
        return false;
    }
    waiting_ids_.insert(announced.id);
    if (wanted_id_.empty() || meant) {
        interfaces_.insert(announced.interface_name);
    }
    return true;
}

bool wifi_candidates::had_network(const announcement &now) const {
    return std::ranges::any_of(before_.all(), [&now](const announcement &other) {
        return other.id == now.id && other.address == now.address && !other.needs_wifi_setup;
    });
}

wifi_candidates::sign wifi_candidates::judge(const announcement &announced) {
    note_waiting(announced);
    const bool other = !wanted_id_.empty() && announced.id != wanted_id_;
    if (announced.needs_wifi_setup || other || had_network(announced)) {
        return sign::none;
    }
    const bool right = !wanted_id_.empty() || waiting_ids_.contains(announced.id);
    return right ? sign::joined : sign::unsure;
}

wifi_candidates::readiness wifi_candidates::state() const {
    if (wanted_id_.empty()) {
        return waiting_ids_.empty() ? readiness::nobody_waits : readiness::ready;
    }
    if (waiting_ids_.contains(wanted_id_)) {
        return readiness::ready;
    }
    return before_.find_id(wanted_id_) == nullptr ? readiness::not_heard : readiness::not_waiting;
}

bool wifi_candidates::can_recognise() const {
    return !wanted_id_.empty() || !waiting_ids_.empty();
}

} // namespace lan_client
