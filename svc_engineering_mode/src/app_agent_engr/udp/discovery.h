/* The discovery broadcast of the agent's own mode, by which apps find the gateway. */
#pragma once

/** One broadcast attempt. Timer context only. */
void __udp_dev_discovery();
