// Which gateways a run is for, when it is for several.
#pragma once

#include "gateway/discovery.h"

#include <optional>
#include <string>
#include <vector>

namespace engr_app {

class gateway_session;

struct target {
    std::string label;            /**< in tables and for scripts: id or address */
    std::string file_mark;        /**< the same, fit for a file name */
    std::optional<gateway> found; /**< absent: why says why */
    std::optional<failure> missing;
};

/**
 * All gateways that announce themselves, or those that the options name; listens when it has to.
 * Throws a failure when there is none to be found at all.
 */
[[nodiscard]] std::vector<target> find_targets(gateway_session &session);

} // namespace engr_app
