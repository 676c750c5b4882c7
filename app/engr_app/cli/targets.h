// Which gateways a run is for, when it is for several.
#pragma once

#include "gateway/discovery.h"

#include <optional>
#include <string>
#include <vector>

namespace engr_app {

class gateway_session;

/** One of several gateways that a run is for. */
struct run_target {
    std::string label;              /**< in tables and for scripts: id or address */
    std::string file_mark;          /**< the same, fit for a file name */
    std::optional<gateway> found;   /**< empty when it was not found */
    std::optional<failure> missing; /**< why it was not found */
};

/**
 * Finds all gateways that announce themselves, or those that the options name.
 *
 * @return each once; throws a failure when no gateway at all is found
 */
[[nodiscard]] std::vector<run_target> find_targets(gateway_session &session);

} // namespace engr_app
