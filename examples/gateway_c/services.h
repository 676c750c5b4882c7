/* The example gateway's record and what main does with it. */
#pragma once

/** Makes the mutexes and fills in the gateway and its two devices. 0, or an error. */
int gateway_begin(void);
