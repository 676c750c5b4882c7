// Room on the disk of the working directory, and how much of it stays for what must always fit.
#pragma once

#include <cstdint>

namespace gateway {

/** Most bytes of a configuration that an app can push: a frame holds no more. */
constexpr uint64_t config_bytes_max = 2ULL * 1024 * 1024;
/** Room that an image leaves: for changes of the store, a configuration and the log. */
constexpr uint64_t disk_reserve_bytes = 2 * config_bytes_max;

/** Bytes that may still be written; as good as endless when the system does not tell. */
uint64_t disk_room();

} // namespace gateway
