#include "calls/calls.h"

#include "calls/log.h"
#include "gateway_services/error.h"
#include "platform/clock.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <exception>
#include <limits>
#include <utility>

namespace gateway {
namespace {

/** The call does its work; any other number is what it returns instead. */
constexpr int64_t normal_work = std::numeric_limits<int64_t>::min();
/** A callback that is absent. */
constexpr int64_t absent = normal_work + 1;

/** Behaviour of one call. Atomic, since some calls must not wait for a mutex. */
struct call_state {
    std::atomic<int64_t> behaviour{normal_work};
    std::atomic<uint64_t> count{0};

    [[nodiscard]] std::optional<int32_t> fixed_result() const {
        const int64_t now = behaviour;
        return now <= absent ? std::nullopt : std::optional(static_cast<int32_t>(now));
    }
};

std::array<call_state, call_table.size()> states;
// The sinks change only while no call is under way.
line_sink trace;
line_sink trace_soon;
std::atomic<bool> has_trace;

std::atomic<bool> is_open;
std::atomic<uint32_t> calls_under_way;

bool can_be_set(const call_info &info) {
    return info.kind != call_kind::certain;
}

std::string known_names(bool callbacks) {
    std::string names;
    for (const call_info &info : call_table) {
        if (info.is_callback == callbacks && can_be_set(info)) {
            names += (names.empty() ? "" : ", ") + std::string(info.name);
        }
    }
    return names;
}

std::size_t find_call(std::string_view name, bool callbacks) {
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        const call_info &info = call_table[i];
        if (info.name == name && info.is_callback == callbacks && can_be_set(info)) {
            return i;
        }
    }
    throw usage_error(fmt::format("no such {}; there are: {}", callbacks ? "callback" : "service",
                                  known_names(callbacks)));
}

void check_result(const call_info &info, int32_t result) {
    if ((info.kind == call_kind::pointer || info.kind == call_kind::nothing) && result != 0) {
        throw usage_error(fmt::format("can only be 0: it returns {}",
                                      info.kind == call_kind::pointer
                                          ? "a pointer, and 0 stands for none"
                                          : "nothing, and 0 keeps it from its work"));
    }
    if (info.kind == call_kind::byte && (result < 0 || result > 255)) {
        throw usage_error("can only be 0 to 255: it returns one byte");
    }
}

void set_behaviour(std::size_t number, int64_t behaviour) {
    if (behaviour > absent) {
        check_result(call_table[number], static_cast<int32_t>(behaviour));
    }
    states[number].behaviour = behaviour;
    states[number].count = 0;
}

} // namespace

call_passage::call_passage() {
    // Counted first: either calls_close sees the call, or the call sees the closed gate.
    ++calls_under_way;
    is_open_ = is_open;
}

call_passage::~call_passage() {
    --calls_under_way;
}

bool tracing() {
    return has_trace;
}

std::optional<int32_t> enter_call(std::size_t number) {
    ++states[number].count;
    return states[number].fixed_result();
}

void trace_call(std::size_t number, const call_arguments &arguments, std::string_view result) {
    const std::string line = trace_line(call_table[number].name, arguments, result);
    if (call_table[number].may_wait || !trace_soon) {
        trace(line);
    } else {
        trace_soon(line);
    }
}

void calls_init(const scenario &faults, line_sink new_trace, line_sink new_trace_soon) {
    trace = std::move(new_trace);
    trace_soon = std::move(new_trace_soon);
    has_trace = static_cast<bool>(trace);
    for (const scenario_entry &entry : faults.services) {
        set_behaviour(find_call(entry.name, false), entry.result.value_or(normal_work));
    }
    for (const scenario_entry &entry : faults.callbacks) {
        set_behaviour(find_call(entry.name, true), entry.result.value_or(absent));
    }
    is_open = true;
}

void calls_close() {
    is_open = false;
    while (calls_under_way != 0) {
        kelo_hal_system_sleep(1);
    }
}

void calls_shutdown() {
    has_trace = false;
    trace = nullptr;
    trace_soon = nullptr;
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        set_behaviour(i, normal_work);
    }
}

bool is_present(std::size_t number) {
    return states[number].behaviour != absent;
}

void check_scenario_entry(const scenario_entry &entry, bool is_callback) {
    const std::size_t number = find_call(entry.name, is_callback);
    if (entry.result) {
        check_result(call_table[number], *entry.result);
    }
}

void set_service_fault(std::string_view name, std::optional<int32_t> result) {
    const std::size_t number = find_call(name, false);
    set_behaviour(number, result ? *result : normal_work);
}

void set_callback_behaviour(std::string_view name, callback_mode mode, int32_t result) {
    set_behaviour(find_call(name, true), mode == callback_mode::absent         ? absent
                                         : mode == callback_mode::fixed_result ? result
                                                                               : normal_work);
}

nlohmann::ordered_json faults_status() {
    auto all = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        const std::optional<int32_t> result = states[i].fixed_result();
        if (!call_table[i].is_callback && result) {
            all[std::string(call_table[i].name)] = {{"result", *result},
                                                    {"count", states[i].count.load()}};
        }
    }
    return all;
}

nlohmann::ordered_json callbacks_status() {
    auto all = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        if (!call_table[i].is_callback) {
            continue;
        }
        nlohmann::ordered_json &entry = all[std::string(call_table[i].name)];
        if (const std::optional<int32_t> result = states[i].fixed_result()) {
            entry["result"] = *result;
        } else {
            entry["result"] = states[i].behaviour == absent ? "absent" : "present";
        }
        entry["count"] = states[i].count.load();
    }
    return all;
}

int32_t guarded(const std::function<void()> &work, std::string &reason) {
    int32_t result = 0;
    try {
        work();
    } catch (const usage_error &error) {
        result = result_argument;
        reason = error.what();
    } catch (const std::exception &error) {
        result = result_failed;
        reason = error.what();
    }
    if (result != 0) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", reason.c_str());
    }
    return result;
}

int32_t guarded(const std::function<void()> &work) {
    std::string reason;
    return guarded(work, reason);
}

} // namespace gateway
