// The callbacks of the gateway record, and the frame handlers that an operator registers. Callbacks
// that are handed to the agent with a call stand with their subject.
#pragma once

namespace gateway {

/** Puts the callbacks that are present into the gateway record. */
void install_callbacks();

} // namespace gateway
