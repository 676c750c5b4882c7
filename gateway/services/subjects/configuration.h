// The configuration files of the working directory and the one in force, the agent's settings, the
// radio channel, and set_gateway_field of operate.h. All functions throw refused when the store
// fails.
//
// The agent truncates and then writes the files, and does not report success; so the last complete
// one of each is kept beside it, in case the gateway is killed in between.
#pragma once

#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

/**
 * Brings a configuration back that was being replaced when the gateway was killed.
 *
 * @param keeps_files  false: the gateway leaves nothing behind, so nothing is kept
 */
void configuration_init(bool keeps_files);
/** Removes the copies that are no longer needed; the agent has been stopped. */
void configuration_shutdown();

/**
 * Prepares the directory for the agent, which may write a configuration: removes pipes and links,
 * and keeps copies of complete files.
 *
 * @return the directory, ending in a separator; one that does not exist when there is no room for a
 * configuration, so that the old one is not truncated
 */
const char *prepare_config_directory();
/**
 * Reads a configuration, or another file, by a path that begins with either directory.
 *
 * @throws refused
 */
std::string read_config(const std::string &path);
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
/** Changes the radio channel; throws usage_error. */
void change_channel(const support::json_value &request);

/** Adds settings and configuration files; change_mutex is held. */
void add_configuration_status(nlohmann::ordered_json &status);

} // namespace gateway
