// The gate that every call of the agent passes, service or callback: it applies the configured
// fault, counts the call and traces it.
#pragma once

#include "calls/call_table.h"
#include "gateway/records.h"
#include "gateway/upgrade.h"
#include "gateway_services/scenario.h"
#include "platform/log.h"

#include <cjson/cJSON.h>
#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

/** Writes a log line of the gateway at a level of platform/log.h. */
#define GATEWAY_LOG(level, ...)                                                                    \
    PrintLog(gateway::log_module, level, __FILE_NAME__, __LINE__, __func__, __VA_ARGS__)

namespace gateway {

/** Module number of the gateway in the log. */
constexpr int log_module = 1;

/** Results of the services' own failures. */
constexpr int32_t result_failed = -1;
constexpr int32_t result_argument = -2; /**< a required argument is absent, or is malformed */
constexpr int32_t result_not_text = -6; /**< the decrypted bytes are no text */

/** Takes a trace line; see open_options. */
using line_sink = std::function<void(std::string_view)>;

/** Takes a call that was traced; see open_options. */
using call_sink =
    std::function<void(std::string_view name, std::string_view arguments, std::string_view result)>;

/** Who is told of calls; each may be empty. */
struct call_sinks {
    line_sink trace;
    line_sink trace_soon;
    call_sink observer;
};

/** Applies a scenario and opens the gate; before any call. */
void calls_init(const scenario &faults, call_sinks sinks);
/** Closes the gate: waits for the calls under way; later ones do nothing. */
void calls_close();
/** Forgets scenario and trace, after calls_close. */
void calls_shutdown();

/**
 * Refuses an unknown name, and a result that the call cannot return.
 *
 * @throws usage_error
 */
void check_scenario_entry(const scenario_entry &entry, bool is_callback);
/** Changes what a callback does, by its name; see set_callback. */
void set_callback_behaviour(std::string_view name, callback_mode mode, int32_t result);

/** Services with a fault: name to result and how often it was returned. */
nlohmann::ordered_json faults_status();
/** All callbacks: name to what it does and how often it was called since that was set. */
nlohmann::ordered_json callbacks_status();

/** A password or token that is traced as "***" unless it is absent or empty. */
struct secret_text {
    const char *text;
};
/** A payload that is traced as a text. */
struct payload_bytes {
    const void *data;
    std::size_t length;
};
/**
 * A value as the trace shows it, in JSON: a device as its id, a firmware record as its four fields,
 * a request as it came, its secrets as "***", and a null pointer as null. What is not UTF-8 in a
 * text shows as U+FFFD.
 */
using traced_value = std::variant<int64_t, const char *, secret_text, payload_bytes,
                                  const dev_cntl_t *, const lan_fw_info_t *, const cJSON *>;
/** An argument of a call. */
struct call_argument {
    std::string_view name;
    traced_value value;
};
using call_arguments = std::initializer_list<call_argument>;

/** One call on its way through the gate; calls_close waits for its end. */
class passing_call {
  public:
    /**
     * Counts the call and keeps its arguments for the trace; never waits.
     *
     * @param number  its call()
     */
    passing_call(std::size_t number, call_arguments arguments);
    passing_call(const passing_call &) = delete;
    passing_call &operator=(const passing_call &) = delete;
    ~passing_call();
    /** False: the gate is closed. The agent's upgrade worker may outlive the agent's stop. */
    explicit operator bool() const { return is_open_; }
    /** The result of the configured fault, if there is one. */
    [[nodiscard]] std::optional<int32_t> fault() const { return fault_; }
    /** Writes the trace line. */
    void trace(const traced_value &result) const;

  private:
    std::size_t number_;
    bool is_open_;
    bool is_traced_ = false;
    std::string arguments_; /**< members of a JSON object */
    std::optional<int32_t> fault_;
};

/**
 * Lets one call of the agent through the gate. Once that is closed, the work is not done and the
 * result is 0 or null.
 *
 * @param number     the call's call()
 * @param arguments  as they are before the work, which may release them
 * @param work       what the call does unless it has a fault
 */
template <typename Work>
auto service(std::size_t number, call_arguments arguments, const Work &work) -> decltype(work()) {
    using result_type = decltype(work());
    const passing_call passing(number, arguments);
    if (!passing) {
        return result_type();
    }
    if constexpr (std::is_void_v<result_type>) {
        if (!passing.fault()) {
            work();
        }
        passing.trace(static_cast<const char *>(nullptr));
    } else {
        result_type result{};
        if (!passing.fault()) {
            result = work();
        } else if constexpr (!std::is_pointer_v<result_type>) {
            result = static_cast<result_type>(*passing.fault());
        }
        passing.trace(result);
        return result;
    }
}

/**
 * Does work for the agent, which takes no exceptions; a failure is logged.
 *
 * @param reason  gets the message of a failure; may be null
 * @return 0; result_argument for a usage_error; result_failed for any other exception
 */
int32_t guarded(const std::function<void()> &work, std::string *reason = nullptr);

/** As service, for work whose failure is the result; see guarded. */
template <typename Work>
int32_t guarded_service(std::size_t number, call_arguments arguments, const Work &work) {
    return service(number, arguments, [&] { return guarded(work); });
}

/**
 * As service, for a call that takes over a request when it returns 0, also when a fault makes it
 * return that.
 *
 * @param work  leaves the request alone
 */
template <typename Work>
int32_t service_taking_request(std::size_t number, cJSON *request, const Work &work) {
    const int32_t result = service(number, {{"root", request}}, work);
    if (result == 0) {
        cJSON_Delete(request);
    }
    return result;
}

/** Whether a callback is not set to be absent. */
bool is_present(std::size_t number);
/**
 * A callback that is handed to the agent: the function, or null while the callback is absent.
 *
 * @param number  its call()
 */
template <typename Function>
Function *callback_unless_absent(std::size_t number, Function *function) {
    return is_present(number) ? function : nullptr;
}

} // namespace gateway
