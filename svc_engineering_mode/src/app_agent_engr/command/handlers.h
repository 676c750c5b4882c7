/* The command handlers, as the table of frame types names them. Each sends its own answer. Server
 * task. */
#pragma once

#include "transport/request.h"

/** FRM_NOP: does nothing and does not answer. */
void __lan_nop(const lan_request &request);
/** FRM_DEV_LIST: the bound sub-devices. */
void __lan_get_dev_list(const lan_request &request);
/** FRM_DEV_LINE_STAT: the online and the offline sub-devices. */
void __lan_get_dev_line_stat(const lan_request &request);
