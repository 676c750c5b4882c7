#include "calls/calls.h"

#include "calls/activity.h"
#include "gateway_services/error.h"
#include "platform/clock.h"
#include "support/utf8.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <strings.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
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
call_sinks told; // changes only while no call is under way
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

constexpr const char *hidden = "***";
/** Members of requests that hold secrets. */
constexpr const char *secret_members[] = {"passwd", "token", "local_key"};

std::string json_of(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
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
        // The member keeps its name and its place; the old value is deleted with the replacement.
        std::swap(each->type, replacement->type);
        std::swap(each->valuestring, replacement->valuestring);
        std::swap(each->child, replacement->child);
        cJSON_Delete(replacement);
    }
}

std::string json_of(int64_t number) {
    return std::to_string(number);
}

std::string json_of(const char *text) {
    return text == nullptr ? "null" : json_of(std::string_view(text));
}

std::string json_of(const secret_text &secret) {
    return json_of(secret.text == nullptr || *secret.text == '\0' ? secret.text : hidden);
}

std::string json_of(const payload_bytes &payload) {
    return payload.data == nullptr
               ? "null"
               : json_of(std::string_view(static_cast<const char *>(payload.data), payload.length));
}

std::string json_of(const dev_cntl_t *device) {
    return json_of(device == nullptr ? nullptr : device->dev_id);
}

std::string json_of(const lan_fw_info_t *firmware) {
    if (firmware == nullptr) {
        return "null";
    }
    const auto bounded = [](const char *bytes, std::size_t size) {
        return json_of(std::string_view(bytes, strnlen(bytes, size)));
    };
    return fmt::format(R"({{"fw_kind": {}, "sw_ver": {}, "file_size": {}, "file_md5": {}}})",
                       firmware->fw_kind, bounded(firmware->sw_ver, sizeof firmware->sw_ver),
                       firmware->file_size, bounded(firmware->file_md5, sizeof firmware->file_md5));
}

std::string json_of(const cJSON *item) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> copy(
        item == nullptr ? nullptr : cJSON_Duplicate(item, 1), cJSON_Delete);
    if (!copy) {
        return "null";
    }
    hide_secrets(*copy);
    // Shown as it came, a member given twice included; so it is printed and not read again.
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(cJSON_PrintUnformatted(copy.get()),
                                                               cJSON_free);
    return printed == nullptr ? "null" : support::valid_utf8(printed.get());
}

std::string json_of(const traced_value &value) {
    return std::visit([](const auto &of) { return json_of(of); }, value);
}

} // namespace

passing_call::passing_call(std::size_t number, call_arguments arguments) : number_(number) {
    // Counted first: either calls_close sees the call, or the call sees the closed gate.
    ++calls_under_way;
    is_open_ = is_open;
    if (!is_open_) {
        return;
    }
    is_traced_ = call_table[number].is_traced && has_trace;
    for (const call_argument &each : arguments) {
        if (is_traced_) {
            arguments_ += fmt::format(R"({}"{}": {})", arguments_.empty() ? "" : ", ", each.name,
                                      json_of(each.value));
        }
    }
    ++states[number].count;
    fault_ = states[number].fixed_result();
}

passing_call::~passing_call() {
    --calls_under_way;
}

void passing_call::trace(const traced_value &result) const {
    if (!is_traced_) {
        return;
    }
    const call_info &info = call_table[number_];
    const std::string shown_result = json_of(result);
    if (told.observer) {
        told.observer(info.name, "{" + arguments_ + "}", shown_result);
    }
    if (const line_sink &sink = info.may_wait || !told.trace_soon ? told.trace : told.trace_soon) {
        sink(fmt::format(R"({{"call": "{}", "args": {{{}}}, "result": {}}})", info.name, arguments_,
                         shown_result));
    }
}

void calls_init(const scenario &faults, call_sinks sinks) {
    told = std::move(sinks);
    has_trace = told.trace || told.observer;
    for (const scenario_entry &entry : faults.services) {
        set_behaviour(find_call(entry.name, false), entry.result ? *entry.result : normal_work);
    }
    for (const scenario_entry &entry : faults.callbacks) {
        set_behaviour(find_call(entry.name, true), entry.result ? *entry.result : absent);
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
    told = {};
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

int32_t guarded(const std::function<void()> &work, std::string *reason) {
    const auto fail = [&](const std::exception &error, int32_t result) {
        GATEWAY_LOG(LOG_LEVEL_FAILURE, "%s", error.what());
        tell_refusal(error.what());
        if (reason != nullptr) {
            *reason = error.what();
        }
        return result;
    };
    try {
        work();
        return 0;
    } catch (const usage_error &error) {
        return fail(error, result_argument);
    } catch (const std::exception &error) {
        return fail(error, result_failed);
    }
}

} // namespace gateway
