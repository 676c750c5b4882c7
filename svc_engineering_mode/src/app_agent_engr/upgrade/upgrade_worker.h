/* The thread that tells the upgrade service the outcome, and stays with it while it installs. */
#pragma once

#include <cstdint>

/** Claims the outcome and starts the worker that tells it; does nothing when the outcome has been
 * claimed before. Server task. @param result  0 image complete, 1 failed */
void __lan_upgrade_nofity(uint32_t result);
