// The gateway's own log lines.
#pragma once

#include "platform/log.h"

/** Module number of the gateway in the log. */
constexpr int log_module_gateway = 1;

/** Writes one line at a level of platform/log.h. */
#define GATEWAY_LOG(level, ...)                                                                    \
    PrintLog(log_module_gateway, level, __FILE_NAME__, __LINE__, __func__, __VA_ARGS__)
