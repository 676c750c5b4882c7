// What changed between two site reports.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * The reports of a file in an array: one alone, or those of several gateways as --all writes them.
 * Throws a failure of wrong usage that names the file.
 */
[[nodiscard]] nlohmann::json read_site_reports(const std::string &path);

/**
 * What changed, gateway by gateway:
 *
 *     [{"gateway": ID, "item": TEXT, "cid": ID, "before": VALUE, "after": VALUE, "words": TEXT}]
 *
 * "gateway" is an address when the id was not known, "item" one of "gateway", "channel",
 * "app_config", "device", "pid", "online", "data_point N" and the members of the report's
 * "gateway". "cid" is null unless it concerns one device; "before" and "after" are null for what
 * was not there. "words" quotes the network: show it safely.
 */
[[nodiscard]] nlohmann::json site_changes(const nlohmann::json &before,
                                          const nlohmann::json &after);

} // namespace engr_app
