// gateway/group.h: groups of devices.
#include "gateway/group.h"

#include "calls/calls.h"
#include "subjects/groups.h"

using namespace gateway;

int32_t engr_sf_send_grp_oper_cmd(sf_cmd_t *command) {
    return service_taking_request(call("engr_sf_send_grp_oper_cmd"), command->root,
                                  [&] { return operate_group(command->root); });
}
