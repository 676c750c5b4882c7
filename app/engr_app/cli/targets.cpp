// Finding the gateways of a run.
#include "cli/targets.h"

#include "gateway/finding.h"
#include "gateway/session.h"

#include <algorithm>
#include <map>
#include <set>

#include <fmt/format.h>

namespace engr_app {
namespace {

run_target found_target(const gateway &found) {
    return {found.label(), found.file_mark(), found, {}};
}

// One for each address: several ids there are the same gateway, or none.
std::vector<run_target> all_targets(gateway_session &session) {
    const std::string places = interfaces_text(session.options().interface_name);
    session.out().progress(fmt::format("listening for gateways on {} ...", places));
    const discovery_result found = session.discover(session.discovery_time());
    if (found.announcements.empty()) {
        throw not_found(found, "");
    }
    const auto &keys = session.options().keys;
    std::vector<run_target> targets;
    std::map<std::string, std::size_t> at_place;
    for (const lan_client::announcement &announced : found.announcements) {
        run_target one = found_target(from_announcement(announced));
        const auto [known, is_new] = at_place.emplace(one.found->place(), targets.size());
        if (is_new) {
            targets.push_back(std::move(one));
        } else if (keys.contains(announced.id) && !keys.contains(targets[known->second].label)) {
            targets[known->second] = std::move(one);
        }
    }
    session.out().notice(fmt::format("{} gateway{} found on {}", targets.size(),
                                     targets.size() == 1 ? "" : "s", places));
    if (const std::size_t more = found.announcements.size() - targets.size(); more > 0) {
        session.out().notice(fmt::format(
            "{} more id(s) are announced from addresses of these gateways and left out: a gateway "
            "has one id, and anybody can announce any; engr_app discover lists them",
            more));
    }
    return targets;
}

std::vector<run_target> named_targets(gateway_session &session) {
    const global_options &options = session.options();
    std::map<std::string, gateway> known; // by their names, from earlier runs
    std::set<std::string> awaited;        // ids, and addresses whose id is needed to find the key
    for (const std::string &name : options.gateways) {
        std::optional<gateway> placed = parse_address(name);
        if (!placed) {
            if (const std::optional<gateway> recalled = recall(session, name)) {
                known.emplace(name, *recalled);
            } else {
                awaited.insert(name);
            }
        } else if (!options.keys.empty() && !options.keys.contains(placed->place())) {
            placed->announced = recall_with_key(session, placed->address);
            if (placed->announced) {
                known.emplace(name, *placed);
            } else {
                awaited.insert(placed->address);
            }
        }
    }
    discovery_result found{.interface_name = options.interface_name, .announcements = {}};
    if (!awaited.empty()) {
        session.out().progress(fmt::format("listening for {} gateway{} on {} ...", awaited.size(),
                                           awaited.size() == 1 ? "" : "s",
                                           interfaces_text(options.interface_name)));
        found = session.discover(session.discovery_time(), [&awaited](const auto &announced) {
            awaited.erase(announced.id);
            awaited.erase(announced.address);
            return awaited.empty();
        });
    }
    std::vector<run_target> targets;
    for (const std::string &name : options.gateways) {
        if (const auto recalled = known.find(name); recalled != known.end()) {
            targets.push_back(found_target(recalled->second));
            continue;
        }
        std::optional<gateway> placed = parse_address(name);
        const auto *announced = placed ? found.find_address(placed->address) : found.find_id(name);
        if (placed && announced != nullptr) {
            placed->announced = *announced;
        }
        if (placed || announced != nullptr) {
            targets.push_back(found_target(placed ? *placed : from_announcement(*announced)));
        } else {
            targets.push_back({name, {}, {}, not_found(found, name)});
        }
    }
    return targets;
}

} // namespace

std::vector<run_target> find_targets(gateway_session &session) {
    std::vector<run_target> targets =
        session.options().all ? all_targets(session) : named_targets(session);
    // One gateway may be named twice, by its id and by its address, and two may claim one id.
    std::set<std::string> places;
    std::set<std::string> labels;
    std::erase_if(targets, [&](run_target &one) {
        if (one.found && !places.insert(one.found->place()).second && labels.contains(one.label)) {
            return true;
        }
        if (!labels.insert(one.label).second && one.found) {
            one.label += fmt::format(" ({})", one.found->place());
            one.file_mark = one.found->place();
        }
        return false;
    });
    return targets;
}

} // namespace engr_app
