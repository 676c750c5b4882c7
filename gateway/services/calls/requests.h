// Requests of apps, as the agent hands them to the services, and operations, whose outcome is
// reported to every app.
#pragma once

#include "gateway/records.h"
#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>

namespace gateway {

using request_reader = std::function<void(const support::json_value &request)>;

/**
 * Reads a request that the agent has parsed.
 *
 * @throws usage_error
 */
void read_request(const cJSON *root, const request_reader &read);
/**
 * Reads the text of a request, which has at most 65,536 values, and 256 members in an object.
 *
 * @param text  may be null
 * @throws usage_error
 */
void read_request(const char *text, std::size_t length, const request_reader &read);

/**
 * What an operation does. It adds its results to the outcome.
 *
 * @throws refused, usage_error  with the reason, which becomes part of the outcome
 */
using operation_work = std::function<void(nlohmann::ordered_json &outcome)>;

/**
 * Reads the request of an operation.
 *
 * @param outcome  gets the members that say which operation it was; they are reported in any case
 * @throws usage_error  the request is malformed
 */
using operation_reader = operation_work (*)(const support::json_value &request,
                                            nlohmann::ordered_json &outcome);

/**
 * Carries out an operation and reports its outcome to every app, under the request's own frame
 * type: ret 0, or ret 1 with a "reason".
 *
 * @return 0; result_argument when the request is malformed, and then nothing is reported
 */
int32_t carry_out_operation(uint32_t frame_type, const cJSON *request, operation_reader read);

} // namespace gateway
