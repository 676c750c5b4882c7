/* Group service. Called on the agent's server task; may block shortly. */
#pragma once

#include "gateway/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Takes a group operation.
 *
 * @return 0 = accepted, the request is the service's from then on and it reports the outcome itself
 */
int32_t engr_sf_send_grp_oper_cmd(sf_cmd_t *command);

#ifdef __cplusplus
}
#endif
