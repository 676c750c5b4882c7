// Requests of the agent, and operations whose outcome is reported to every app.
#pragma once

#include "gateway/records.h"
#include "store/json_reader.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace gateway {

/** Reads a request that the agent has parsed. Both forms throw usage_error. */
void read_request(const cJSON *root, const std::function<void(const json_value &request)> &read);
/**
 * Reads the text of a request.
 *
 * @param text  may be null
 */
void read_request(const char *text, std::size_t length,
                  const std::function<void(const json_value &request)> &read);

/**
 * What an operation does.
 *
 * @param outcome  completed on success
 * @throws refused  with the reason
 */
using operation_work = std::function<void(nlohmann::ordered_json &outcome)>;

/**
 * Reads the request of an operation.
 *
 * @param outcome  gets what names the operation: it is told in any case
 * @throws usage_error  it cannot be read
 */
using operation_reader = operation_work (*)(const json_value &request,
                                            nlohmann::ordered_json &outcome);

/**
 * A service that takes an operation, and sends its outcome to every app as a report of the
 * request's own frame type: ret 0, or ret 1 with a "reason".
 *
 * @param number      the service's call()
 * @param frame_type  that of the request
 * @return 0, the request having been released; result_argument when it cannot be read
 */
int32_t take_operation(std::size_t number, uint32_t frame_type, sf_cmd_t *command,
                       operation_reader read);

} // namespace gateway
