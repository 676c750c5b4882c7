#include "contracts/callbacks.h"

#include "calls/calls.h"
#include "platform/owners.h"
#include "store/records.h"
#include "subjects/configuration.h"
#include "subjects/installer.h"
#include "subjects/joining.h"
#include "subjects/log_snapshots.h"
#include "subjects/scenes.h"
#include "subjects/upgrade.h"

namespace gateway {
namespace {

int32_t on_gateway_upgrade(lan_fw_info_t *firmware) {
    return service(
        call("gw_lan_ug_cb"), [&](call_arguments &list) { list.firmware("record", firmware); },
        [&] { return receive_offer("", *firmware); });
}

int32_t on_device_upgrade(const char *dev_id, lan_fw_info_t *firmware) {
    return service(
        call("dev_lan_ug_cb"),
        [&](call_arguments &list) { list.text("dev_id", dev_id).firmware("record", firmware); },
        [&] { return receive_offer(dev_id, *firmware); });
}

int32_t on_get_log_path(char *path, uint32_t size) {
    return service(
        call("get_log_path"), [&](call_arguments &list) { list.number("size", size); },
        [&] { return guarded([&] { make_log_snapshot(path, size); }); });
}

int32_t on_sync_config() {
    return service(call("sync_config"), [] { return guarded(apply_config); });
}

void on_end_notify() {
    service(call("engr_end_notify"), [] { guarded(end_engineering); });
}

int32_t on_permit_join(uint8_t kind, bool enable, uint32_t time_s) {
    return service(
        call("permit_join"),
        [&](call_arguments &list) {
            list.number("kind", kind).number("enable", enable).number("time", time_s);
        },
        [&] { return int32_t{permit_joining(kind, enable ? time_s : 0)}; });
}

void on_device_deleted(const char *dev_id) {
    service(
        call("dev_delete_notify"), [&](call_arguments &list) { list.text("dev_id", dev_id); },
        [] {});
}

int32_t on_scene_exec(int32_t mode, const char *dev_id, const char *gid, const char *sid) {
    return service(
        call("scene_exec"),
        [&](call_arguments &list) {
            list.number("mode", mode).text("dev_id", dev_id).text("gid", gid).text("sid", sid);
        },
        [&] { return guarded([&] { execute_scene(gid, sid); }); });
}

} // namespace

void install_callbacks() {
    gw_cntl_t &gateway = the_gateway().shared;
    const platform::held_mutex guard(gateway.field_mutex);
    gateway.gw_lan_ug_cb = callback_unless_absent(call("gw_lan_ug_cb"), on_gateway_upgrade);
    gateway.dev_lan_ug_cb = callback_unless_absent(call("dev_lan_ug_cb"), on_device_upgrade);
    gateway.get_log_path = callback_unless_absent(call("get_log_path"), on_get_log_path);
    gateway.sync_config = callback_unless_absent(call("sync_config"), on_sync_config);
    gateway.engr_end_notify = callback_unless_absent(call("engr_end_notify"), on_end_notify);
    gateway.permit_join = callback_unless_absent(call("permit_join"), on_permit_join);
    gateway.dev_delete_notify =
        callback_unless_absent(call("dev_delete_notify"), on_device_deleted);
    gateway.scene_exec = callback_unless_absent(call("scene_exec"), on_scene_exec);
}

void set_callback(std::string_view name, callback_mode mode, int32_t result) {
    set_callback_behaviour(name, mode, result);
    install_callbacks();
}

} // namespace gateway
