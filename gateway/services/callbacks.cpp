// The gateway record's callbacks: what each does when the scenario leaves it to its work.
#include "calls.h"
#include "calls_state.h"
#include "engineering.h"
#include "log.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "records.h"
#include "store.h"

#include <nlohmann/json.hpp>

namespace gateway {
namespace {

constexpr std::string_view engineering_ended_setting = "engineering_ended";
constexpr int32_t joining_changed = 1;

/** Whether new devices may join, and the scene that was executed last; guarded by change_mutex. */
struct engineering_state {
    uint8_t join_kind = 0;
    uint32_t join_opened_s = 0;
    uint32_t join_time_s = 0; /**< 0: closed */
    nlohmann::ordered_json last_scene;
};
engineering_state engineering_now;

/** Seconds for which joining is still open; change_mutex is held. */
uint32_t join_time_left() {
    const uint32_t passed = uni_time_get_posix() - engineering_now.join_opened_s;
    return passed < engineering_now.join_time_s ? engineering_now.join_time_s - passed : 0;
}

void call_engr_end_notify() {
    service(call("engr_end_notify"), no_arguments, [] {
        change_lastingly([] { the_store().set_setting(engineering_ended_setting, "1"); });
    });
}

int32_t call_permit_join(uint8_t kind, bool enable, uint32_t time_s) {
    return service(
        call("permit_join"),
        [&](call_arguments &list) {
            list.number("kind", kind).number("enable", enable).number("time", time_s);
        },
        [&] {
            const platform::held_mutex change(change_mutex());
            engineering_now.join_kind = kind;
            engineering_now.join_opened_s = uni_time_get_posix();
            engineering_now.join_time_s = enable ? time_s : 0;
            return joining_changed;
        });
}

void call_dev_delete_notify(const char *dev_id) {
    service(
        call("dev_delete_notify"), [&](call_arguments &list) { list.text("dev_id", dev_id); },
        [] {});
}

int32_t call_scene_exec(int32_t mode, const char *dev_id, const char *gid, const char *sid) {
    return service(
        call("scene_exec"),
        [&](call_arguments &list) {
            list.number("mode", mode).text("dev_id", dev_id).text("gid", gid).text("sid", sid);
        },
        [&] {
            const platform::held_mutex change(change_mutex());
            engineering_now.last_scene = {{"gid", gid}, {"sid", sid}};
            return 0;
        });
}

} // namespace

bool change_lastingly(const std::function<void()> &work) {
    std::string reason;
    {
        const platform::held_mutex change(change_mutex());
        try {
            work();
            return true;
        } catch (const std::exception &error) {
            reason = error.what();
        }
    }
    GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", reason.c_str());
    return false;
}

void install_callbacks() {
    const auto chosen = [](std::size_t number, auto *function) {
        return is_present(number) ? function : nullptr;
    };
    gw_cntl_t &gateway = the_gateway().shared;
    const platform::held_mutex guard(gateway.field_mutex);
    gateway.engr_end_notify = chosen(call("engr_end_notify"), call_engr_end_notify);
    gateway.permit_join = chosen(call("permit_join"), call_permit_join);
    gateway.dev_delete_notify = chosen(call("dev_delete_notify"), call_dev_delete_notify);
    gateway.scene_exec = chosen(call("scene_exec"), call_scene_exec);
}

void close_engineering() {
    engineering_now = {};
}

void add_engineering_status(nlohmann::ordered_json &status) {
    const platform::held_mutex change(change_mutex());
    status["joining"] = {{"kind", engineering_now.join_kind}, {"seconds_left", join_time_left()}};
    status["last_scene"] = engineering_now.last_scene;
    status["engineering_ended"] = the_store().setting(engineering_ended_setting) == "1";
}

} // namespace gateway
