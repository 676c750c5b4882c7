// The JSON Schema of site plans, and what a document has that it does not allow.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/** @return the schema as JSON; `engr_app site schema` prints it, and it is installed as a file */
[[nodiscard]] std::string_view site_plan_schema();

/** One thing in a document that the schema does not allow. */
struct schema_fault {
    std::string place; /**< as in "gateways[3].channel"; empty for the whole document */
    std::string what;  /**< what is wrong, and what is expected there */
};

/** @return what is wrong with a plan, in the order of its parts; nothing when it fits the schema */
[[nodiscard]] std::vector<schema_fault> schema_faults(const nlohmann::json &plan);

} // namespace engr_app
