// A plan made from what a gateway has.
#pragma once

#include <string>
#include <vector>

namespace engr_app {

class gateway_session;

struct exported_plan {
    std::string yaml;                 /**< a whole plan for one gateway */
    std::vector<std::string> missing; /**< sentences: what the gateway does not tell */
};

/**
 * Asks the chosen gateway for everything that it tells.
 *
 * @param versions  ask for firmware versions as well; they become comments, since a plan names
 *                  images
 */
[[nodiscard]] exported_plan export_plan(gateway_session &session, bool versions);

} // namespace engr_app
