// The configuration files of the working directory. The agent truncates and then writes them, and
// does not report success; so the last complete one of each is kept beside it, in case the gateway
// is killed in between.
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

} // namespace gateway
