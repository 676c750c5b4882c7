// The callbacks of the gateway record. Those that are handed to the agent with a call stand with
// their subject.
#pragma once

namespace gateway {

/** Puts the callbacks that are present into the gateway record. */
void install_callbacks();

} // namespace gateway
