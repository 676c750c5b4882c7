// What an installer does with the gateway.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <functional>

namespace gateway {

/** Adds joining, the last scene and whether engineering has ended. */
void add_engineering_status(nlohmann::ordered_json &status);
/** Forgets what does not last. */
void close_engineering();

/** Runs a change under change_mutex for the agent, which takes no exceptions; a failure is logged.
 * @return whether it succeeded */
bool change_lastingly(const std::function<void()> &work);

} // namespace gateway
