// What came of a plan: for scripts, and as a document to be signed off.
#pragma once

#include "plan/gateway_work.h"

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/**
 * @param applied  the plan was applied; else it was looked at only
 * @return {"plan_report": 1, "plan": NAME, "time": TEXT, "applied": BOOL, "gateways": [
 *          {"gateway": NAME, "id": ID, "address": TEXT, "as_planned": BOOL,
 *           "steps": [{"item", "state", "check", "words"}], "notes": [TEXT],
 *           "devices": [{"cid", "pid", "name", "room", "state"}],
 *           "error": {"kind", "message"}, "site": {...}}]}, with "error" and "site" null where
 *         there is none. A device's "state" is "online", "offline", "missing", "not planned", or
 *         "bound" when the gateway tells neither of the first two
 */
[[nodiscard]] nlohmann::json plan_report(const std::string &plan_name, bool applied,
                                         const std::vector<gateway_outcome> &outcomes);

/** @return words for a person, as in "read back" */
[[nodiscard]] std::string check_words(const std::string &check);
[[nodiscard]] std::string state_words(const std::string &state);

/** The report as a text without a line end at its end. What comes from elsewhere is escaped. */
[[nodiscard]] std::string plan_report_markdown(const nlohmann::json &report);

/** One page that needs no other file. What comes from elsewhere is escaped. */
[[nodiscard]] std::string plan_report_html(const nlohmann::json &report);

} // namespace engr_app
