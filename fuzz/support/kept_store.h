// The database of the gateways of a fuzz target: SQLite takes longer to open one and to read its
// schema than most inputs take, so that all gateways share one connection.
#pragma once

namespace fuzz {

/**
 * Called when the first gateway has been opened, and has no effect later: its database is kept from
 * then on as it is now. What a later gateway does in it is undone when that closes it.
 */
void keep_store();

} // namespace fuzz
