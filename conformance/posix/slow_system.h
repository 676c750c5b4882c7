/* A system that is late on purpose, for conformance_harness_t.slow. */
#pragma once

#include <stdbool.h>

/** What makes the system late for the calling thread; null when this build can't. */
void (*slow_system(void))(bool on);
