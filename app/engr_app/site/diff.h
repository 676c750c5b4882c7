// Differences between two site reports.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * Reads a file with one report, or with those of several gateways as --all and the report of a plan
 * have them.
 *
 * @return the reports in an array
 * @throws failure of wrong usage, or support::input_error
 */
[[nodiscard]] nlohmann::json read_site_reports(const std::string &path);

/** @return the id of a report's gateway, or its address when that is not known */
[[nodiscard]] std::string gateway_name(const nlohmann::json &report);

/** @return a change in the form of site_changes; an empty `device` is none */
[[nodiscard]] nlohmann::json site_change(const std::string &gateway, const std::string &item,
                                         const std::string &device, const nlohmann::json &before,
                                         const nlohmann::json &after, const std::string &sentence);

/**
 * The changes, gateway by gateway:
 *
 *     [{"gateway": ID, "item": TEXT, "cid": ID, "before": VALUE, "after": VALUE, "words": TEXT}]
 *
 * "gateway" is an address when the id was not known, "item" one of "gateway", "channel",
 * "app_config", "device", "pid", "online", "data_point N" and the members of the report's
 * "gateway". "cid" is null unless the change concerns one device; "before" and "after" are null
 * for what did not exist. "words" quotes texts of the network: escape it for a terminal.
 */
[[nodiscard]] nlohmann::json site_changes(const nlohmann::json &before,
                                          const nlohmann::json &after);

} // namespace engr_app
