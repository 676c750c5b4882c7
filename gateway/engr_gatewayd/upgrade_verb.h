// The control verb "upgrade".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace gatewayd {

/**
 * Has the upgrade service start a transfer.
 *
 * @param arguments  start [--cid ID] [--file-size N] [--chunk-size N] [--percent 0|1] [--remain N]
 * @return the result of lan_gw_start_upgrade
 * @throws gateway::usage_error, gateway::refused
 */
int32_t start_upgrade(const std::vector<std::string> &arguments);

} // namespace gatewayd
