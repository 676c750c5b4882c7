/* The thread that reports the outcome to the upgrade service, and runs its installation. */
#pragma once

#include "upgrade_state.h"

#include <cstdint>

/**
 * Starts the worker. Server task.
 *
 * @param decided  copy of the record of a transfer that the caller has decided
 * @param result   0 the image is complete, 1 failed
 */
void __lan_upgrade_nofity(const lan_upg_mgr_t &decided, uint32_t result);

/** A connection was lost during an upgrade: it has failed, unless its outcome is decided. Server
 * task. */
void upgrade_lost_connection();
