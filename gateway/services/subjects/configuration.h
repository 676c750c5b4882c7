// Configuration files, the agent's settings and the radio channel.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace gateway {

/** Forgets that engineering was begun; within a lasting change. */
void forget_engineering();

/** Adds settings and configuration files; change_mutex is held. */
void add_configuration_status(nlohmann::ordered_json &status);

} // namespace gateway
