#include "calls.h"

#include "calls_state.h"
#include "gateway_services/error.h"
#include "json_text.h"
#include "platform/clock.h"
#include "platform/owners.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>

namespace gateway {
namespace {

/** What one call does at present. */
struct call_state {
    bool is_absent = false;
    std::optional<int32_t> fixed_result;
    uint64_t count = 0;
};

kelo_mutex_t calls_mutex; // guards what follows; a trace line is written under it, so that lines
                          // keep the calls' order
std::array<call_state, call_table.size()> states;
std::function<void(std::string_view)> trace_sink;
std::atomic<bool> has_trace;

std::atomic<bool> is_open;
std::atomic<uint32_t> calls_under_way;

bool can_be_set(const call_info &info) {
    return info.kind != call_kind::certain;
}

std::string known_names(bool callbacks) {
    std::string names;
    for (const call_info &info : call_table) {
        if (info.is_callback == callbacks && can_be_set(info))
            names += (names.empty() ? "" : ", ") + std::string(info.name);
    }
    return names;
}

std::size_t find_call(std::string_view name, bool callbacks) {
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        const call_info &info = call_table[i];
        if (info.name == name && info.is_callback == callbacks && can_be_set(info))
            return i;
    }
    throw usage_error("no such " + std::string(callbacks ? "callback" : "service") +
                      "; there are: " + known_names(callbacks));
}

void check_result(const call_info &info, int32_t result) {
    if ((info.kind == call_kind::pointer || info.kind == call_kind::nothing) && result != 0)
        throw usage_error("can only be 0: it returns " +
                          std::string(info.kind == call_kind::pointer
                                          ? "a pointer, and 0 stands for none"
                                          : "nothing, and 0 keeps it from its work"));
    if (info.kind == call_kind::byte && (result < 0 || result > 255))
        throw usage_error("can only be 0 to 255: it returns one byte");
}

void set_state(std::size_t number, const call_state &state) {
    if (state.fixed_result)
        check_result(call_table[number], *state.fixed_result);
    const platform::held_mutex guard(calls_mutex);
    states[number] = state;
}

} // namespace

call_arguments &call_arguments::member(std::string_view name, std::string_view value) {
    if (!members_.empty())
        members_ += ", ";
    members_.append("\"").append(name).append("\": ").append(value);
    return *this;
}

call_arguments &call_arguments::number(std::string_view name, int64_t value) {
    return member(name, std::to_string(value));
}

call_arguments &call_arguments::text(std::string_view name, const char *value) {
    return member(name, value == nullptr ? "null" : json_literal(value));
}

call_arguments &call_arguments::bytes(std::string_view name, const void *data, std::size_t length) {
    return member(name, data == nullptr ? "null"
                                        : json_literal({static_cast<const char *>(data), length}));
}

call_arguments &call_arguments::device(std::string_view name, const dev_cntl_t *value) {
    return text(name, value == nullptr ? nullptr : value->dev_id);
}

call_arguments &call_arguments::firmware(std::string_view name, const lan_fw_info_t *value) {
    if (value == nullptr)
        return member(name, "null");
    const auto bounded = [](const char *bytes, std::size_t size) {
        return json_literal({bytes, strnlen(bytes, size)});
    };
    return member(name, "{\"fw_kind\": " + std::to_string(value->fw_kind) +
                            ", \"sw_ver\": " + bounded(value->sw_ver, sizeof value->sw_ver) +
                            ", \"file_size\": " + std::to_string(value->file_size) +
                            ", \"file_md5\": " + bounded(value->file_md5, sizeof value->file_md5) +
                            "}");
}

call_arguments &call_arguments::json(std::string_view name, const cJSON *item) {
    char *printed = item == nullptr ? nullptr : cJSON_PrintUnformatted(item);
    member(name, printed == nullptr ? "null" : valid_utf8(printed));
    cJSON_free(printed);
    return *this;
}

std::string result_json(int64_t result) {
    return std::to_string(result);
}
std::string result_json(const char *text) {
    return text == nullptr ? "null" : json_literal(text);
}
std::string result_json(const dev_cntl_t *device) {
    return result_json(device == nullptr ? nullptr : device->dev_id);
}

call_passage::call_passage() {
    // Counted first, so that a close that does not see the call is one that the call sees.
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
    const platform::held_mutex guard(calls_mutex);
    ++states[number].count;
    return states[number].fixed_result;
}

void trace_call(std::size_t number, const call_arguments &arguments, std::string_view result) {
    std::string line = "{\"call\": \"";
    line.append(call_table[number].name).append("\", \"args\": {").append(arguments.members());
    line.append("}, \"result\": ").append(result).append("}");
    const platform::held_mutex guard(calls_mutex);
    if (trace_sink)
        trace_sink(line);
}

void open_calls(const scenario &faults, std::function<void(std::string_view)> trace) {
    if (kelo_hal_mutex_create_init(&calls_mutex) != 0)
        throw refused("no mutex could be created");
    trace_sink = std::move(trace);
    has_trace = static_cast<bool>(trace_sink);
    for (const scenario_entry &entry : faults.services)
        set_state(find_call(entry.name, false), {.fixed_result = entry.result});
    for (const scenario_entry &entry : faults.callbacks)
        set_state(find_call(entry.name, true),
                  {.is_absent = !entry.result, .fixed_result = entry.result});
    is_open = true;
}

void end_calls() {
    is_open = false;
    while (calls_under_way != 0)
        kelo_hal_system_sleep(1);
}

void close_calls() {
    has_trace = false;
    trace_sink = nullptr;
    states = {};
    kelo_hal_mutex_release(std::exchange(calls_mutex, nullptr));
}

bool is_present(std::size_t number) {
    const platform::held_mutex guard(calls_mutex);
    return !states[number].is_absent;
}

void check_scenario_entry(const scenario_entry &entry, bool is_callback) {
    const std::size_t number = find_call(entry.name, is_callback);
    if (entry.result)
        check_result(call_table[number], *entry.result);
}

void set_service_fault(std::string_view name, std::optional<int32_t> result) {
    set_state(find_call(name, false), {.fixed_result = result});
}

void set_callback(std::string_view name, callback_mode mode, int32_t result) {
    const std::size_t number = find_call(name, true);
    call_state state;
    state.is_absent = mode == callback_mode::absent;
    if (mode == callback_mode::fixed_result)
        state.fixed_result = result;
    set_state(number, state);
    install_callbacks();
}

nlohmann::ordered_json faults_status() {
    auto all = nlohmann::ordered_json::object();
    const platform::held_mutex guard(calls_mutex);
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        if (!call_table[i].is_callback && states[i].fixed_result)
            all[std::string(call_table[i].name)] = {{"result", *states[i].fixed_result},
                                                    {"count", states[i].count}};
    }
    return all;
}

nlohmann::ordered_json callbacks_status() {
    auto all = nlohmann::ordered_json::object();
    const platform::held_mutex guard(calls_mutex);
    for (std::size_t i = 0; i < call_table.size(); ++i) {
        if (!call_table[i].is_callback)
            continue;
        nlohmann::ordered_json &entry = all[std::string(call_table[i].name)];
        if (states[i].fixed_result)
            entry["result"] = *states[i].fixed_result;
        else
            entry["result"] = states[i].is_absent ? "absent" : "present";
        entry["count"] = states[i].count;
    }
    return all;
}

} // namespace gateway
