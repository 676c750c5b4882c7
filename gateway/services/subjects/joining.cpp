#include "subjects/joining.h"

#include "calls/activity.h"
#include "calls/calls.h"
#include "gateway_services/error.h"
#include "gateway_services/operate.h"
#include "platform/owners.h"
#include "platform/timer.h"
#include "store/products.h"
#include "store/records.h"
#include "subjects/devices.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <utility>

namespace gateway {
namespace {

/** Longest wait for the next event, and so the resolution of the time left in the status. */
constexpr uint64_t joining_step_ms = 1000;

/**
 * Joining at the moment; guarded by change_mutex. Its time is counted by the timer alone, since the
 * time of day may jump.
 */
struct joining_state {
    uint8_t kind = 0;
    uint64_t left_ms = 0;   /**< until it closes; 0: closed */
    uint64_t waited_ms = 0; /**< since the opening, or the last joining */
    uint64_t step_ms = 0;   /**< for which the timer was started last */
    uint16_t timer = 0;     /**< 0: none was needed yet */
    std::vector<joining_device> waiting;
};
joining_state joining_now;

/** Whether a device is yet to join: it is not in the list, or was bound but never came online. The
 * gateway itself never joins; change_mutex is held. */
bool is_yet_to_join(const std::string &dev_id) {
    if (is_own_id(dev_id)) {
        return false;
    }
    const device_record *listed = find_listed_device(dev_id);
    if (listed == nullptr) {
        return true;
    }
    const platform::held_mutex guard(the_gateway().shared.dev_mutex);
    return listed->online == 0 && listed->dps == no_data_points;
}

/** The device that joins next: the first that is yet to. */
const joining_device *next_to_join() {
    const auto found =
        std::find_if(joining_now.waiting.begin(), joining_now.waiting.end(),
                     [](const joining_device &each) { return is_yet_to_join(each.id()); });
    return found == joining_now.waiting.end() ? nullptr : &*found;
}

/**
 * Starts the timer for the next event.
 *
 * @return whether it runs
 */
bool start_step() {
    uint64_t step = std::min(joining_now.left_ms, joining_step_ms);
    if (const joining_device *next = next_to_join()) {
        const uint64_t due = next->join_after_ms;
        step = std::min(step, due > joining_now.waited_ms ? due - joining_now.waited_ms : 1);
    }
    joining_now.step_ms = step;
    return sys_start_timer(joining_now.timer, static_cast<uint32_t>(step), SYS_TIMER_ONE_SHOT) == 0;
}

/**
 * Counts the elapsed step.
 *
 * @return the device that is due to join, if any
 */
std::optional<site_device> end_step() {
    const platform::held_mutex change(change_mutex());
    // The timer was stopped or restarted while this callback waited for the mutex.
    if (joining_now.left_ms == 0 || IsThisSysTimerRun(joining_now.timer) == 1) {
        return std::nullopt;
    }
    joining_now.left_ms -= std::min(joining_now.left_ms, joining_now.step_ms);
    if (joining_now.left_ms == 0) {
        tell_event("joining closed: its time is over");
    }
    joining_now.waited_ms += joining_now.step_ms;
    const joining_device *next = next_to_join();
    if (next == nullptr || next->join_after_ms > joining_now.waited_ms) {
        return std::nullopt;
    }
    joining_now.waited_ms = 0;
    return *next;
}

/** The product of a device that joins: its own, else the one that it was bound with. */
std::string product_of_joining(const site_device &device) {
    if (const field_value *pid = device.find("pid")) {
        return std::get<std::string>(*pid);
    }
    const device_record *listed = find_listed_device(device.id());
    return listed != nullptr ? product_of(*listed) : "";
}

void join(site_device device) {
    device.set("online", int64_t{1});
    const std::string pid = product_of_joining(device);
    if (device.dps == no_data_points) {
        device.dps = first_data_points(pid);
    }
    check_product_values(the_products(), pid, nlohmann::ordered_json::parse(device.dps),
                         setter::device);
    bind_devices({std::move(device)}, arrival::joined);
}

void on_joining_timer(uint16_t, void *) {
    guarded([] {
        if (std::optional<site_device> device = end_step()) {
            join(std::move(*device));
        }
    });
    const platform::held_mutex change(change_mutex());
    if (joining_now.left_ms != 0 && IsThisSysTimerRun(joining_now.timer) == 0 && !start_step()) {
        close_joining();
    }
}

/**
 * Opens joining for a time; change_mutex is held.
 *
 * @return whether it is open
 */
bool begin_joining(uint8_t kind, uint32_t time_s) {
    if (joining_now.timer == 0 &&
        sys_add_timer(on_joining_timer, nullptr, &joining_now.timer) != 0) {
        return false;
    }
    joining_now.kind = kind;
    joining_now.left_ms = uint64_t{time_s} * 1000;
    joining_now.waited_ms = 0;
    if (start_step()) {
        return true;
    }
    close_joining();
    return false;
}

} // namespace

void joining_init(std::vector<joining_device> waiting) {
    joining_now.waiting = std::move(waiting);
}

void joining_shutdown() {
    if (joining_now.timer != 0) {
        sys_delete_timer(joining_now.timer);
    }
    joining_now = {};
}

void close_joining() {
    joining_now.left_ms = 0;
    if (joining_now.timer != 0) {
        sys_stop_timer(joining_now.timer);
    }
}

void join_device(const std::string &dev_id, const std::optional<std::string> &pid) {
    site_device device;
    {
        const platform::held_mutex change(change_mutex());
        if (joining_now.left_ms == 0) {
            throw refused("joining is closed; an app has to open it first");
        }
        if (is_own_id(dev_id)) {
            throw refused(fmt::format("'{}' is the gateway itself", dev_id));
        }
        if (!is_yet_to_join(dev_id)) {
            throw refused(fmt::format("device '{}' has joined already", dev_id));
        }
        for (const joining_device &each : joining_now.waiting) {
            if (each.id() == dev_id) {
                device = each;
            }
        }
    }
    const auto set = [&](const char *name, const std::string &value) {
        const field &of = need_field(device_fields(), name);
        device.set(name, value_from_text(of, value));
    };
    set("dev_id", dev_id);
    if (pid) {
        set("pid", *pid);
    }
    join(std::move(device));
}

bool permit_joining(uint8_t kind, uint32_t time_s) {
    const platform::held_mutex change(change_mutex());
    if (time_s == 0) {
        close_joining();
        tell_deed("closed joining");
        return true;
    }
    const bool is_open = begin_joining(kind, time_s);
    tell_deed(is_open ? fmt::format("opened joining for {} s", time_s)
                      : "could not open joining: no timer");
    return is_open;
}

void add_joining_status(nlohmann::ordered_json &status) {
    status["joining"] = {
        {"open", joining_now.left_ms != 0},
        {"kind", joining_now.kind},
        {"seconds_left", (joining_now.left_ms + 999) / 1000},
        {"waiting",
         std::count_if(joining_now.waiting.begin(), joining_now.waiting.end(),
                       [](const joining_device &each) { return is_yet_to_join(each.id()); })}};
}

} // namespace gateway
