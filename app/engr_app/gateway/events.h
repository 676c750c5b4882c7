// What a gateway reports, in the app's own terms.
#pragma once

#include "lan_client/client.h"

#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * @return a report for scripts, one of
 *         {"event": "data_points", "cid", "dps"},
 *         {"event": "bound", "devices": [{"cid", "pid"}]},
 *         {"event": "unbound" or "deactivated", "cid"},
 *         {"event": "upgrade_progress", "target": "gateway" or "device", "cid", "percent"},
 *         {"event": "version", "target", "cid", "version"},
 *         {"event": "other" and what raw_report_json has}.
 *         "cid" is null where a gateway names no device, which means itself
 */
[[nodiscard]] nlohmann::json event_of(const lan_client::report &report);

/** @return {"type", "name", "number", "ret", "payload"}; an unreadable payload is null */
[[nodiscard]] nlohmann::json raw_report_json(const lan_client::report &report);

/** @return the ids of the devices that an event is about */
[[nodiscard]] std::vector<std::string> devices_of_event(const nlohmann::json &event);

/** How sentences call things; both may be absent. */
struct event_naming {
    std::function<std::string(const std::string &id)> device; /**< "device ID" */
    std::function<std::string(const std::string &id, const std::string &number)> data_point;
};

/**
 * @return one sentence, such as "device a1 reports 1 = true"; it quotes the network, so escape it
 *         for a terminal
 */
[[nodiscard]] std::string event_sentence(const nlohmann::json &event,
                                         const event_naming &names = {});

/** @return the report as it came, in one line */
[[nodiscard]] std::string raw_report_text(const lan_client::report &report);

} // namespace engr_app
