// Keeping secrets out of what is recorded and shown. Lengths stay, so that frames keep theirs.
#pragma once

#include "session/event.h"
#include "session/words.h"

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
 * Bytes without the secrets in them: in what is plain, and in the whole blocks of payloads that one
 * of the keys decrypts. The latter are encrypted again, under the session's key where it was a
 * local one.
 */
[[nodiscard]] std::string bytes_without_secrets(side from, std::string bytes,
                                                const known_keys &keys,
                                                std::string_view session_key);

/**
 * What a file or a person may see of an event. Log lines and activity sentences are looked through
 * as well.
 *
 * @param keys  that may be in use in bytes that are no frame
 */
[[nodiscard]] event without_secrets(event from, const known_keys &keys,
                                    std::string_view session_key);

/** The same for the beginning of a file; its key stays. */
[[nodiscard]] header without_secrets(header from);

} // namespace session
