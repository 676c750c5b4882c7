// How a gateway differs from its plan, in what an app can read.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

struct gateway_plan;
class site_plan;

/**
 * @param report  a site report of the gateway
 * @return the changes from the report to the plan, in the form of site_changes. "item" is
 *     "channel", "device" (not there), "other_device" (not in the plan), "pid", "online" (planned
 *     to join, but not online), "app_config" or "sw_ver". Versions count only in a report that has
 *     them
 */
[[nodiscard]] nlohmann::json plan_changes(const gateway_plan &plan, const nlohmann::json &report);

/** The same for a whole plan and an array of reports; also gateways that only one of them has. */
[[nodiscard]] nlohmann::json plan_changes(const site_plan &plan, const nlohmann::json &reports);

} // namespace engr_app
