// The beginning of a session that is recorded from now on.
#pragma once

#include "lan_client/crypto.h"
#include "session/event.h"

#include <map>
#include <string>

namespace session {

/** The first 16 digits of a key's SHA-256: tells keys apart, and does not tell them. */
[[nodiscard]] std::string fingerprint(const lan_client::aes_key &key);

/** Fingerprints of the built-in keys of this build, as a header has them. */
[[nodiscard]] std::map<std::string, std::string> built_in_fingerprints();

/** A header with the present time, the fingerprints and a key of its own: 16 random letters and
 * digits. */
[[nodiscard]] header start_now(const std::string &program, const std::string &version,
                               side recorded_by);

} // namespace session
