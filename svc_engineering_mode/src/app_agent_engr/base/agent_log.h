/* How the agent writes its log lines. */
#pragma once

#include "platform/log.h"

/** Writes one line of the agent. level: one of LOG_LEVEL_...; the rest as for printf. */
#define LAN_LOG(level, ...)                                                                        \
    PrintLog(LOG_MODULE_AGENT, level, __FILE_NAME__, __LINE__, __func__, __VA_ARGS__)
