// Keeping secrets out of what is recorded and shown. Lengths stay, so that frames keep theirs.
#pragma once

#include "session/event.h"

#include <string>
#include <string_view>

namespace session {

/**
 * The text with the values of JSON members that hold passwords, tokens or keys replaced by as many
 * "*" as they have bytes; digits of a number become 1; true, false and null stay. The text need not
 * be whole JSON, and may hold JSON in its strings.
 *
 * @param key  stands for a local key of its length; empty: such a key is hidden as the others
 */
[[nodiscard]] std::string without_secrets(std::string_view text, std::string_view key = {});

/**
 * The event without secrets, for a file or a person. Log lines and activity sentences are looked
 * through as well.
 */
[[nodiscard]] event without_secrets(event from, std::string_view key);

} // namespace session
