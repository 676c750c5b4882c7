// MD5 digests as people and apps write them.
#pragma once

#include "platform/crypto.h"

#include <string>

namespace gateway {

/**
 * Ends a digest.
 *
 * @return its 32 hexadecimal digits
 */
std::string md5_text(uni_md5_context_t &context);

} // namespace gateway
