// Lasting changes: the store first, then the records, so that memory never holds what the store
// does not.
#pragma once

#include "gateway_services/site.h"
#include "platform/owners.h"
#include "store/sql.h"

#include <functional>
#include <vector>

namespace gateway {

/** One lasting change: holds change_mutex and a transaction. Records are changed after commit. */
class lasting_change {
  public:
    lasting_change();
    /**
     * Makes the change last.
     *
     * @throws refused  nothing was changed
     */
    void commit() { all_.commit(); }

  private:
    platform::held_mutex change_;
    transaction all_;
};

/**
 * Changes fields of the gateway, all or nothing: checks the values, stores them, and writes them
 * into the record.
 *
 * @param with  further changes of the store that belong to the same transaction; may be empty
 * @throws usage_error  a value is not one of its field; refused
 */
void change_gateway_fields(const std::vector<field_setting> &settings,
                           const std::function<void()> &with = {});

} // namespace gateway
