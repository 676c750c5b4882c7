// The gate that every call of the agent passes, service or callback: it applies the configured
// fault, counts the call and traces it.
#pragma once

#include "calls/call_table.h"
#include "calls/trace_line.h"
#include "gateway_services/scenario.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace gateway {

/** Results of the services' own failures. */
constexpr int32_t result_failed = -1;
constexpr int32_t result_argument = -2; /**< a required argument is absent, or is malformed */
constexpr int32_t result_not_text = -6; /**< the decrypted bytes are no text */

/** Takes a trace line; see open_options. */
using line_sink = std::function<void(std::string_view)>;

/** Applies a scenario and opens the gate; before any call. */
void calls_init(const scenario &faults, line_sink trace, line_sink trace_soon);
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

/** One call on its way through the gate; calls_close waits for its end. */
class call_passage {
  public:
    call_passage();
    call_passage(const call_passage &) = delete;
    call_passage &operator=(const call_passage &) = delete;
    ~call_passage();
    /** False: the gate is closed. The agent's upgrade worker may outlive the agent's stop. */
    explicit operator bool() const { return is_open_; }

  private:
    bool is_open_;
};

/** Whether trace lines are wanted. */
bool tracing();
/**
 * Counts the call; never waits.
 *
 * @return the result of the configured fault, if there is one
 */
std::optional<int32_t> enter_call(std::size_t number);
/**
 * Writes the trace line of a call.
 *
 * @param result  JSON
 */
void trace_call(std::size_t number, const call_arguments &arguments, std::string_view result);

/**
 * Lets one call of the agent through the gate. Once that is closed, the work is not done and the
 * result is 0 or null.
 *
 * @param number     the call's call()
 * @param arguments  adds the arguments to a call_arguments; called before the work, which may
 *                   release them
 * @param work       what the call does unless it has a fault
 */
template <typename Arguments, typename Work>
auto service(std::size_t number, Arguments &&arguments, Work &&work) -> decltype(work()) {
    using result_type = decltype(work());
    const call_passage passage;
    if (!passage) {
        return result_type();
    }
    const bool traced = call_table[number].is_traced && tracing();
    call_arguments list;
    if (traced) {
        arguments(list);
    }
    const std::optional<int32_t> fault = enter_call(number);
    if constexpr (std::is_void_v<result_type>) {
        if (!fault) {
            work();
        }
        if (traced) {
            trace_call(number, list, "null");
        }
    } else {
        result_type result{};
        if (!fault) {
            result = work();
        } else if constexpr (!std::is_pointer_v<result_type>) {
            result = static_cast<result_type>(*fault);
        }
        if (traced) {
            trace_call(number, list, result_json(result));
        }
        return result;
    }
}

/** The same for a call without arguments to show. */
template <typename Work>
auto service(std::size_t number, Work &&work) -> decltype(work()) {
    return service(
        number, [](call_arguments &) {}, work);
}

/**
 * The same for a call that takes over a request when it returns 0, also when a fault makes it
 * return that.
 *
 * @param work  leaves the request alone
 */
template <typename Work>
int32_t service_taking_request(std::size_t number, cJSON *request, Work &&work) {
    const int32_t result = service(
        number, [&](call_arguments &list) { list.json("root", request); }, work);
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

/**
 * Does work for the agent, which takes no exceptions; a failure is logged.
 *
 * @param reason  gets the message of a failure
 * @return 0; result_argument for a usage_error; result_failed for any other exception
 */
int32_t guarded(const std::function<void()> &work, std::string &reason);
/** The same for a caller that does not need the message. */
int32_t guarded(const std::function<void()> &work);

} // namespace gateway
