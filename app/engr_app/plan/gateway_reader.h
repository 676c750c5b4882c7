// Reading of one gateway of a plan.
#pragma once

#include "plan/plan.h"

#include <cstddef>

namespace engr_app {

/**
 * @param index  of its entry in the plan
 * @param found  the gateway, for an entry with a pattern; else null
 * @throws failure of wrong usage
 */
[[nodiscard]] gateway_plan read_gateway(const plan_document &document, std::size_t index,
                                        const lan_client::announcement *found);

} // namespace engr_app
