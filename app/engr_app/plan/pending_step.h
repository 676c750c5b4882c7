// A step of a plan with the work that it takes.
#pragma once

#include "plan/gateway_work.h"

#include <cstddef>
#include <functional>
#include <string>

namespace engr_app {

struct gateway_work::pending {
    std::size_t index = 0; /**< of the step in the outcome */
    std::function<step_check()> work;
    std::string done_words{}; /**< what is so when it has worked */
    std::string change{}; /**< the kind of change that is gone when it has worked; may be empty */
    std::string device{}; /**< which the change is about */
    bool any_device = false; /**< it is about all devices */
    bool last = false;       /**< only done when all else has worked */
};

} // namespace engr_app
