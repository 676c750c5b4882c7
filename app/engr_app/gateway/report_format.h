// What a gateway reports by itself, in words and for scripts.
#pragma once

#include "lan_client/client.h"

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

/// One sentence, such as "device a1 reports 1 = true". It quotes the network: show it safely.
[[nodiscard]] std::string report_words(const lan_client::report &told);

/// {"time", "type", "name", "number", "ret", "payload"}; "payload" is null when unreadable.
[[nodiscard]] nlohmann::json report_json(const lan_client::report &told);

} // namespace engr_app
