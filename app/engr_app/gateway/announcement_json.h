// A gateway's announcement for scripts.
#pragma once

#include "lan_client/discovery.h"

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

[[nodiscard]] nlohmann::json announcement_json(const lan_client::announcement &said);

} // namespace engr_app
