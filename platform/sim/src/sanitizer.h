/* Whether this build has the address sanitizer: fibers must be announced to it, and heap checks are
 * left to it. */
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIM_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define SIM_ADDRESS_SANITIZER 1
#endif
