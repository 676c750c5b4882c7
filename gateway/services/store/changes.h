// Lasting changes, and the boundary to the agent, which takes no exceptions.
#pragma once

#include "platform/owners.h"
#include "store/sql.h"

#include <cstdint>
#include <functional>

namespace gateway {

/**
 * One lasting change: holds change_mutex and a transaction. Memory is changed after commit, so that
 * it never holds what the store does not.
 */
class lasting_change {
  public:
    lasting_change();
    /**
     * Makes it last.
     *
     * @throws refused  nothing was changed
     */
    void commit() { all_.commit(); }

  private:
    platform::held_mutex change_;
    transaction all_;
};

/**
 * Does a service's work for the agent; what it throws is logged, after change_mutex was released.
 *
 * @return 0; result_argument for a usage_error; result_failed for any other exception
 */
int32_t guarded(const std::function<void()> &work);

/** The same, and tells the reason of a failure as well. */
int32_t guarded(const std::function<void()> &work, std::string &reason);

} // namespace gateway
