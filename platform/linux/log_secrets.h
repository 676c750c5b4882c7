/* Keeps secrets of requests out of the log's graver levels. */
#pragma once

#include <string>
#include <string_view>

namespace linux_port {

/**
 * The message with the values of JSON members that hold secrets (passwd, token, local_key, in any
 * letter case) replaced by ***. A request that can't be parsed is logged as a failure with its
 * text, which need not be whole JSON: a value that does not end is replaced to the end.
 */
std::string without_secrets(std::string_view message);

} // namespace linux_port
