// What the console shows of what happens: events of a session file, without secrets, with the bytes
// on the wire beside the words.
#pragma once

#include "session/event.h"
#include "session/words.h"

#include <string>

namespace gatewayd {

/**
 * The event as docs/console.md has it, but for its number. Of what is long the beginning is there.
 *
 * @param keys   that may be in use in bytes that are no frame
 * @param start  has the key that stands for local ones
 */
std::string shown_event(const session::event &what, const session::known_keys &keys,
                        const session::header &start);

} // namespace gatewayd
