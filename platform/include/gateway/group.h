/* Group service. Called on the agent's server task; may block briefly. */
#pragma once

#include "gateway/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Takes a group operation, any JSON value from FRM_GRP_OPER; the reference gateway's form is
 * {"gid": GID, "op": "add", "cids": [ID]}. The agent has looked at no member of it.
 *
 * @param command  the record is read during the call only
 * @return 0 = accepted: the root is the service's from then on. The agent does not answer; the
 *     service reports the outcome by engr_lan_data_report_cb, with the frame type of the request.
 *     Else the root stays the agent's, and the app is told "group oper failed"
 */
int32_t engr_sf_send_grp_oper_cmd(sf_cmd_t *command);

#ifdef __cplusplus
}
#endif
