#include "contracts/callbacks.h"

#include "calls/calls.h"
#include "calls/calls_state.h"
#include "platform/owners.h"
#include "store/records.h"

namespace gateway {

void call_dev_delete_notify(const char *dev_id) {
    service(
        call("dev_delete_notify"), [&](call_arguments &list) { list.text("dev_id", dev_id); },
        [] {});
}

void install_callbacks() {
    gw_cntl_t &gateway = the_gateway().shared;
    const platform::held_mutex guard(gateway.field_mutex);
    gateway.gw_lan_ug_cb = callback_unless_absent(call("gw_lan_ug_cb"), call_gw_lan_ug_cb);
    gateway.dev_lan_ug_cb = callback_unless_absent(call("dev_lan_ug_cb"), call_dev_lan_ug_cb);
    gateway.get_log_path = callback_unless_absent(call("get_log_path"), call_get_log_path);
    gateway.sync_config = callback_unless_absent(call("sync_config"), call_sync_config);
    gateway.engr_end_notify = callback_unless_absent(call("engr_end_notify"), call_engr_end_notify);
    gateway.permit_join = callback_unless_absent(call("permit_join"), call_permit_join);
    gateway.dev_delete_notify =
        callback_unless_absent(call("dev_delete_notify"), call_dev_delete_notify);
    gateway.scene_exec = callback_unless_absent(call("scene_exec"), call_scene_exec);
}

} // namespace gateway
