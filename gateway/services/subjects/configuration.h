// The configuration in force, the agent's settings, the radio channel, and set_gateway_field of
// operate.h. All functions throw refused when the store fails.
#pragma once

#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string_view>

namespace gateway {

/**
 * Puts cloud.config into force: remembers its size, its MD5 and the time.
 *
 * @throws refused  it cannot be read, or is not JSON
 */
void apply_config();

/**
 * Stores a setting of the agent.
 *
 * @throws usage_error  the key or the value is too long
 * @throws refused      there are too many
 */
void store_setting(std::string_view key, std::string_view value);
/** Removes the setting that engineering has begun; within a lasting change. */
void forget_engineering();

/** Number of the radio channel. */
int32_t current_channel();
/**
 * Changes the radio channel.
 *
 * @throws usage_error
 */
void change_channel(const support::json_value &request);

/** Adds settings and configuration files; change_mutex is held. */
void add_configuration_status(nlohmann::ordered_json &status);

} // namespace gateway
