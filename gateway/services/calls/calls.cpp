#include "calls/calls.h"

#include "calls/calls_state.h"
#include "gateway_services/error.h"
#include "platform/clock.h"
#include "store/json_text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <memory>
#include <strings.h>
#include <utility>

namespace gateway {
namespace {

/** What a call does that is not made to return something: any other number is the result. */
constexpr int64_t normal_work = std::numeric_limits<int64_t>::min();
/** A callback that is absent. */
constexpr int64_t absent = normal_work + 1;

/** What one call does at present. Atomic, since some calls may not even wait for a mutex. */
struct call_state {
    std::atomic<int64_t> behaviour{normal_work};
    std::atomic<uint64_t> count{0};

    [[nodiscard]] std::optional<int32_t> fixed_result() const {
        const int64_t now = behaviour;
        return now <= absent ? std::nullopt : std::optional(static_cast<int32_t>(now));
    }
};

std::array<call_state, call_table.size()> states;
// These change only while no call is under way.
std::function<void(std::string_view)> trace;
std::function<void(std::string_view)> trace_soon;
std::atomic<bool> has_trace;

constexpr const char *hidden = "***";
/** Members of requests that nobody may read in a trace. */
constexpr const char *secret_members[] = {"passwd", "token", "local_key"};

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
    throw usage_error("no such " + std::string(callbacks ? "callback" : "service") +
                      "; there are: " + known_names(callbacks));
}

void check_result(const call_info &info, int32_t result) {
    if ((info.kind == call_kind::pointer || info.kind == call_kind::nothing) && result != 0) {
        throw usage_error("can only be 0: it returns " +
                          std::string(info.kind == call_kind::pointer
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

bool is_secret(const char *name) {
    return name != nullptr &&
           std::any_of(std::begin(secret_members), std::end(secret_members),
                       [&](const char *secret) { return strcasecmp(name, secret) == 0; });
}

/** Replaces the values of secret members. The agent bounds how deep a request is. */
void hide_secrets(cJSON &parent) {
    for (cJSON *each = parent.child; each != nullptr; each = each->next) {
        if (!is_secret(each->string)) {
            hide_secrets(*each);
            continue;
        }
        cJSON *replacement = cJSON_CreateString(hidden);
        if (replacement == nullptr) {
            throw std::bad_alloc();
        }
        // The member keeps its name and its place; the value goes with the replacement.
        std::swap(each->type, replacement->type);
        std::swap(each->valuestring, replacement->valuestring);
        std::swap(each->child, replacement->child);
        cJSON_Delete(replacement);
    }
}

} // namespace

call_arguments &call_arguments::member(std::string_view name, std::string_view value) {
    if (!members_.empty()) {
        members_ += ", ";
    }
    members_.append("\"").append(name).append("\": ").append(value);
    return *this;
}

call_arguments &call_arguments::number(std::string_view name, int64_t value) {
    return member(name, std::to_string(value));
}

call_arguments &call_arguments::text(std::string_view name, const char *value) {
    return member(name, value == nullptr ? "null" : json_literal(value));
}

call_arguments &call_arguments::secret(std::string_view name, const char *value) {
    return text(name, value == nullptr || *value == '\0' ? value : hidden);
}

call_arguments &call_arguments::bytes(std::string_view name, const void *data, std::size_t length) {
    return member(name, data == nullptr ? "null"
                                        : json_literal({static_cast<const char *>(data), length}));
}

call_arguments &call_arguments::device(std::string_view name, const dev_cntl_t *value) {
    return text(name, value == nullptr ? nullptr : value->dev_id);
}

call_arguments &call_arguments::firmware(std::string_view name, const lan_fw_info_t *value) {
    if (value == nullptr) {
        return member(name, "null");
    }
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
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> copy(
        item == nullptr ? nullptr : cJSON_Duplicate(item, 1), cJSON_Delete);
    if (!copy) {
        return member(name, "null");
    }
    hide_secrets(*copy);
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(copy.get()),
                                                               cJSON_free);
    return member(name, printed == nullptr ? "null" : valid_utf8(printed.get()));
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
    ++states[number].count;
    return states[number].fixed_result();
}

void trace_call(std::size_t number, const call_arguments &arguments, std::string_view result) {
    std::string line = "{\"call\": \"";
    line.append(call_table[number].name).append("\", \"args\": {").append(arguments.members());
    line.append("}, \"result\": ").append(result).append("}");
    if (call_table[number].may_wait || !trace_soon) {
        trace(line);
    } else {
        trace_soon(line);
    }
}

void open_calls(const scenario &faults, std::function<void(std::string_view)> keep_line,
                std::function<void(std::string_view)> keep_line_soon) {
    trace = std::move(keep_line);
    trace_soon = std::move(keep_line_soon);
    has_trace = static_cast<bool>(trace);
    for (const scenario_entry &entry : faults.services) {
        set_behaviour(find_call(entry.name, false), entry.result.value_or(normal_work));
    }
    for (const scenario_entry &entry : faults.callbacks) {
        set_behaviour(find_call(entry.name, true), entry.result.value_or(absent));
    }
    is_open = true;
}

void end_calls() {
    is_open = false;
    while (calls_under_way != 0) {
        kelo_hal_system_sleep(1);
    }
}

void close_calls() {
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

void set_callback(std::string_view name, callback_mode mode, int32_t result) {
    const std::size_t number = find_call(name, true);
    set_behaviour(number, mode == callback_mode::absent         ? absent
                          : mode == callback_mode::fixed_result ? result
                                                                : normal_work);
    install_callbacks();
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

} // namespace gateway
