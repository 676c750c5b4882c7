// What was commissioned at a site, for machines and for people.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class gateway_session;

/** What costs a request a device. */
struct site_report_extent {
    bool data_points = false; /**< of each device */
    bool versions = false;    /**< firmware of the gateway and of each device */
};

/**
 * Asks the chosen gateway for all that a report holds:
 *
 *     {"site_report": 1, "time": TEXT,      "gateway": {"id", "address", "version", "product_key",
 * "activated", ...},      "channel": N, "app_config": {"bytes": N, "sha256": TEXT},      "devices":
 * [{"cid", "pid", "online", "dps": {...}}], "notes": [TEXT]}
 *
 * What is not known or does not exist is null. "dps" is only there with `data_points`, "sw_ver" of
 * the gateway and the devices with `versions`.
 */
[[nodiscard]] nlohmann::json ask_site_report(gateway_session &session,
                                             const site_report_extent &extent);

/**
 * The report as Markdown without the end of its last line; safe to show whatever the gateway said.
 */
[[nodiscard]] std::string site_report_markdown(const nlohmann::json &report);

} // namespace engr_app
