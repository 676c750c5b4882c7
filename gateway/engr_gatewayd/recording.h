// The session file of --record.
#pragma once

#include "options.h"
#include "session/file.h"

#include <memory>
#include <string>

namespace gatewayd {

/** Lets the file have what happens; before begin_happenings. */
void listen_for_recording(const std::shared_ptr<session::file> &record);

/**
 * Writes the first line: what the daemon was started with, and the gateway as it is. The gateway is
 * open, and its agent has not been started.
 *
 * @param scenario  the text of the scenario's file; empty: there is none
 */
void begin_recording(session::file &record, const options &chosen, const std::string &scenario);

} // namespace gatewayd
