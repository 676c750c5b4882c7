// Calls of the agent's exported functions by name.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace gatewayd {

/**
 * Calls a function of the agent.
 *
 * @param name       its name
 * @param arguments  its arguments in order; those left out at the end are absent (numbers: 0)
 * @return its result; null when it has none
 * @throws gateway::usage_error  unknown function, too many arguments, a malformed one
 */
nlohmann::ordered_json call_agent(const std::string &name,
                                  const std::vector<std::string> &arguments);

/** The functions that call_agent knows: "name", and "arguments" as a usage shows them. */
nlohmann::ordered_json agent_functions();

} // namespace gatewayd
