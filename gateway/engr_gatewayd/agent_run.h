// Starts and stops the agent, and remembers how.
#pragma once

#include <cstdint>

namespace gatewayd {

/**
 * Starts the agent.
 *
 * @return the result of engr_lan_pro_cntl_init
 */
int32_t start_agent(int32_t mode);
/**
 * Stops it.
 *
 * @return the result of engr_lan_pro_cntl_exit
 */
int32_t stop_agent();

/** Whether the agent is started. */
bool agent_is_started();
/** Mode in which it was started last. */
int32_t agent_mode();

} // namespace gatewayd
