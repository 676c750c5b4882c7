/* The log macro of the agent. */
#pragma once

#include "platform/log.h"

#include <cstdint>

static_assert(sizeof(int) == sizeof(int32_t), "log lines print int32_t and uint32_t as int");

/** Writes one log line. The level is one of LOG_LEVEL_..., the rest as for printf. */
#define LAN_LOG(level, ...)                                                                        \
    PrintLog(LOG_MODULE_AGENT, level, __FILE_NAME__, __LINE__, __func__, __VA_ARGS__)
