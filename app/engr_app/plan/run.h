// A plan carried out with all of its gateways, side by side.
#pragma once

#include "plan/gateway_work.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace engr_app {

struct plan_run_options {
    bool apply = false; /**< else look only */
    bool again = false;
    bool yes = false;              /**< irreversible steps are wanted, don't ask */
    bool listen = false;           /**< learn also the ids of gateways that have an address */
    std::size_t at_once = 16;      /**< gateways that are worked with side by side */
    std::string progress_file;     /**< empty: beside the plan */
    std::vector<std::string> only; /**< names of the gateways to work with; empty: all */
};

/** @return one sentence: the gateway's name, how many steps there were, and what went wrong */
[[nodiscard]] std::string outcome_sentence(const gateway_outcome &outcome);

/**
 * Looks for the plan's gateways, looks at each and, with `apply`, makes them as planned. SIGINT
 * ends the work with each gateway after the step under way.
 *
 * @param session  of the whole run, which has no gateway of its own
 * @param confirm  is asked once, with a sentence for each, whether the irreversible steps shall be
 *                 done; throws a failure when not. Nothing was changed before
 * @return what came of each gateway, in the order of the plan
 * @throws failure for what concerns the plan as a whole
 */
[[nodiscard]] std::vector<gateway_outcome>
run_plan(gateway_session &session, const site_plan &plan, const plan_run_options &options,
         const std::function<void(const std::vector<std::string> &sentences)> &confirm);

} // namespace engr_app
