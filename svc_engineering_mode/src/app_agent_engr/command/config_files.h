/* The files behind the configuration and log commands. Server task. */
#pragma once

#include "platform/owners.h"

#include <cstdint>

/**
 * Writes a downloaded file, creating or truncating it.
 *
 * @return 0 written in full; -1 otherwise, what was written stays
 */
[[nodiscard]] int32_t __lan_download_cfg(const char *path, const uint8_t *content, uint32_t length);

/**
 * Notes that engineering has got its configuration and has it taken over.
 *
 * @return 0, or the result of the step that failed
 */
[[nodiscard]] int32_t __lan_sync_config();

/**
 * Reads a whole file.
 *
 * @param[out] buffer  on success its bytes, a 0 byte behind them
 * @param[out] length  its size, stored as soon as it is known
 * @return 0; -2 no path; -1 the file can't be read; -3 no memory, or a file of 2 GiB
 */
[[nodiscard]] int32_t __read_log_file(const char *path, platform::heap_block<char> &buffer,
                                      uint32_t &length);

/** Removes a file that was uploaded. It stays where it can't be removed. */
void __remove_log_file(const char *path);
