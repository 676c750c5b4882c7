#include "contracts/callbacks.h"

#include "calls/calls.h"
#include "engr_lan_agent.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/owners.h"
#include "store/records.h"
#include "subjects/configuration.h"
#include "subjects/installer.h"
#include "subjects/joining.h"
#include "subjects/log_snapshots.h"
#include "subjects/scenes.h"
#include "subjects/upgrade.h"

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <utility>

namespace gateway {
namespace {

int32_t on_gateway_upgrade(lan_fw_info_t *firmware) {
    return service(call("gw_lan_ug_cb"), {{"record", firmware}},
                   [&] { return receive_offer("", *firmware); });
}

int32_t on_device_upgrade(const char *dev_id, lan_fw_info_t *firmware) {
    return service(call("dev_lan_ug_cb"), {{"dev_id", dev_id}, {"record", firmware}},
                   [&] { return receive_offer(dev_id, *firmware); });
}

int32_t on_get_log_path(char *path, uint32_t size) {
    return guarded_service(call("get_log_path"), {{"size", size}},
                           [&] { make_log_snapshot(path, size); });
}

int32_t on_sync_config() {
    return guarded_service(call("sync_config"), {}, apply_config);
}

void on_end_notify() {
    service(call("engr_end_notify"), {}, [] { guarded(end_engineering); });
}

int32_t on_permit_join(uint8_t kind, bool enable, uint32_t time_s) {
    return service(call("permit_join"), {{"kind", kind}, {"enable", enable}, {"time", time_s}},
                   [&] { return int32_t{permit_joining(kind, enable ? time_s : 0)}; });
}

void on_device_deleted(const char *dev_id) {
    service(call("dev_delete_notify"), {{"dev_id", dev_id}}, [] {});
}

int32_t on_scene_exec(int32_t mode, const char *dev_id, const char *gid, const char *sid) {
    return guarded_service(call("scene_exec"),
                           {{"mode", mode}, {"dev_id", dev_id}, {"gid", gid}, {"sid", sid}},
                           [&] { execute_scene(gid, sid); });
}

// Frame handlers that return a fixed result. The agent hands a handler nothing but the request, so
// each registration needs a function of its own.

/** One more than the agent's table takes, so that the refusal can be seen. */
constexpr std::size_t handlers_max = 21;

std::array<std::atomic<int32_t>, handlers_max> handler_results;
std::size_t handlers_used; // guarded by change_mutex

template <std::size_t Slot>
int handle_frame(cJSON *root) {
    return service_taking_request(call("lan_protocol_cb"), root,
                                  [] { return handler_results[Slot].load(); });
}

template <std::size_t... Slot>
constexpr std::array<lan_protocol_cb_t, sizeof...(Slot)>
make_handlers(std::index_sequence<Slot...>) {
    return {handle_frame<Slot>...};
}
constexpr auto handlers = make_handlers(std::make_index_sequence<handlers_max>());

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

int32_t register_frame_handler(int32_t frame_type, int32_t result) {
    const platform::held_mutex change(change_mutex());
    if (handlers_used == handlers_max) {
        throw refused(fmt::format("all {} frame handlers are in use", handlers_max));
    }
    handler_results[handlers_used] = result;
    const int32_t registered = engr_lan_protocol_register_cb(frame_type, handlers[handlers_used]);
    if (registered == 0) {
        ++handlers_used;
    }
    return registered;
}

} // namespace gateway
