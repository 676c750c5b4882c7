// The configuration files of the working directory. The agent truncates and then writes them, and
// does not say whether it succeeded; so the last whole one of each is kept beside it, for the case
// that the gateway is killed in between.
#pragma once

#include <string>

namespace gateway {

constexpr const char *cloud_config_name = "cloud.config";
constexpr const char *app_config_name = "app.config";

/**
 * Brings a configuration back that was being replaced when the gateway was killed.
 *
 * @param keeps_files  false: the gateway leaves nothing behind, so nothing is kept
 */
void config_files_init(bool keeps_files);
/** Removes the copies that are no longer needed; the agent has been stopped. */
void config_files_shutdown();

/**
 * Makes ready for whatever the agent does with a configuration: what would hold it up or lead it
 * out of the directory is removed, and what is whole is kept.
 *
 * @return the directory, ending in a separator; one that does not exist when a configuration could
 * not be written whole, so that the old one is not truncated
 */
const char *prepare_config_directory();
/**
 * Reads a configuration, or another file, by a path that begins with either directory.
 *
 * @throws refused
 */
std::string read_config(const std::string &path);

} // namespace gateway
