// A site report: what was commissioned at a site, as JSON and as Markdown.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class gateway_session;

/** Parts of a report that take time: one request a device, or the wait for an announcement. */
struct site_report_extent {
    bool data_points = false; /**< of each device */
    bool versions = false;    /**< firmware of the gateway and of each device */
    bool announcement = true; /**< listen for it where the gateway is known by its address alone */
};

/**
 * Asks the chosen gateway for the content of a report:
 *
 *     {"site_report": 1, "time": TEXT,
 *      "gateway": {"id", "address", "version", "product_key", "activated", ...},
 *      "channel": N, "app_config": {"bytes": N, "sha256": TEXT},
 *      "devices": [{"cid", "pid", "online", "dps": {...}}], "notes": [TEXT]}
 *
 * Members that are unknown or do not exist are null. "dps" is only there with `data_points`,
 * "sw_ver" of the gateway and the devices with `versions`.
 */
[[nodiscard]] nlohmann::json ask_site_report(gateway_session &session,
                                             const site_report_extent &extent);

/**
 * The report as Markdown, without a line end at its end. Everything from the network is escaped.
 */
[[nodiscard]] std::string site_report_markdown(const nlohmann::json &report);

} // namespace engr_app
