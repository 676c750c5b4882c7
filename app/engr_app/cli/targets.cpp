// Looking for the gateways of a run.
#include "cli/targets.h"

#include "gateway/session.h"

#include <algorithm>
#include <map>
#include <set>

namespace engr_app {
namespace {

// Ids come from the network and must not choose a path.
std::string file_mark_of(const gateway &found) {
    const std::string label = found.label();
    constexpr std::size_t longest_mark = 64;
    const bool fit = label.size() <= longest_mark && std::ranges::all_of(label, [](char one) {
                         return (one >= '0' && one <= '9') || (one >= 'a' && one <= 'z') ||
                                (one >= 'A' && one <= 'Z') || one == '-' || one == '_' ||
                                one == '.';
                     });
    std::string mark = fit ? label : found.place();
    std::ranges::replace(mark, ':', '_');
    return mark;
}

target present_target(const gateway &found) {
    return {found.label(), file_mark_of(found), found, {}};
}

// One for each address: several ids there are the same gateway, or none.
std::vector<target> all_targets(session &searching) {
    const std::string &interface_name = searching.options().interface_name;
    searching.out().progress("listening for gateways on " + interface_name + " ...");
    const heard_gateways heard = searching.listen(searching.listen_time());
    if (heard.announcements.empty()) {
        throw not_found(heard, "", interface_name);
    }
    const auto &keys = searching.options().keys;
    std::vector<target> targets;
    std::map<std::string, std::size_t> at_place;
    for (const lan_client::announcement &said : heard.announcements) {
        target one = present_target(from_announcement(said));
        const auto [known, is_new] = at_place.emplace(one.found->place(), targets.size());
        if (is_new) {
            targets.push_back(std::move(one));
        } else if (keys.contains(said.id) && !keys.contains(targets[known->second].label)) {
            targets[known->second] = std::move(one);
        }
    }
    searching.out().notice(std::to_string(targets.size()) + " gateway(s) found on " +
                           interface_name);
    if (const std::size_t more = heard.announcements.size() - targets.size(); more > 0) {
        searching.out().notice(std::to_string(more) +
                               " more id(s) are announced from addresses of these gateways and "
                               "left out: a gateway has one id, and anybody can announce any; "
                               "engr_app discover lists them");
    }
    return targets;
}

std::vector<target> named_targets(session &searching) {
    const global_options &options = searching.options();
    std::set<std::string> awaited; // ids, and addresses whose id is needed to find the key
    for (const std::string &name : options.gateways) {
        const std::optional<gateway> placed = parse_address(name);
        if (!placed) {
            awaited.insert(name);
        } else if (!options.keys.empty() && !options.keys.contains(placed->place())) {
            awaited.insert(placed->address);
        }
    }
    heard_gateways heard;
    if (!awaited.empty()) {
        searching.out().progress("listening for " + std::to_string(awaited.size()) +
                                 " gateway(s) on " + options.interface_name + " ...");
        heard = searching.listen(searching.listen_time(), [&awaited](const auto &said) {
            awaited.erase(said.id);
            awaited.erase(said.address);
            return awaited.empty();
        });
    }
    std::vector<target> targets;
    for (const std::string &name : options.gateways) {
        std::optional<gateway> placed = parse_address(name);
        const auto *said = placed ? heard.find_address(placed->address) : heard.find_id(name);
        if (placed && said != nullptr) {
            placed->announced = *said;
        }
        if (placed || said != nullptr) {
            targets.push_back(present_target(placed ? *placed : from_announcement(*said)));
        } else {
            targets.push_back({name, {}, {}, not_found(heard, name, options.interface_name)});
        }
    }
    return targets;
}

} // namespace

std::vector<target> find_targets(session &searching) {
    std::vector<target> targets =
        searching.options().all ? all_targets(searching) : named_targets(searching);
    // One gateway may be named twice, by its id and by its address, and two may claim one id.
    std::set<std::string> places;
    std::set<std::string> labels;
    std::erase_if(targets, [&](target &one) {
        if (one.found && !places.insert(one.found->place()).second && labels.contains(one.label)) {
            return true;
        }
        if (!labels.insert(one.label).second && one.found) {
            one.label += " (" + one.found->place() + ")";
            one.file_mark = one.found->place();
        }
        return false;
    });
    return targets;
}

} // namespace engr_app
