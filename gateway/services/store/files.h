// Files of the working directory, private to the gateway's own user, and the room on its disk.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

/** Most bytes of a configuration that an app can push: a frame holds no more. */
constexpr uint64_t config_bytes_max = 2ULL * 1024 * 1024;
/** Room that an image leaves free: for changes of the store, a configuration and the log. */
constexpr uint64_t disk_reserve_bytes = 2 * config_bytes_max;

/**
 * Throws refused for the system call that has just failed: "NAME cannot be WHAT: " and its error.
 */
[[noreturn]] void fail_file(const std::string &name, const char *what);

/** Bytes that may still be written; UINT64_MAX when the system does not know. */
uint64_t disk_room();

/**
 * Reads a regular file. Links are not followed, pipes are not waited for.
 *
 * @throws refused  it is not a regular file, cannot be read, or has more than bytes_max bytes
 */
std::string read_regular_file(const std::string &name, std::size_t bytes_max);
/**
 * Writes a new file, replacing any other of that name. After a failure there is none.
 *
 * @throws refused
 */
void write_private_file(const std::string &name, std::string_view content);
/**
 * The same, but atomic and flushed: the old file stays until the new content is on the disk.
 *
 * @throws refused
 */
void replace_private_file(const std::string &name, std::string_view content);
/**
 * Flushes the names in the working directory.
 *
 * @return whether it succeeded
 */
bool flush_directory();

} // namespace gateway
