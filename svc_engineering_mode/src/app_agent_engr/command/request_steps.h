/* Steps that many command handlers share. Server task. */
#pragma once

#include "base/json_request.h"
#include "gateway/records.h"
#include "transport/request.h"

/** Refuses a request that is not JSON. */
void refuse_unreadable(const lan_request &request);
/** Refuses a request that is not JSON or lacks a member, quoting it in the log. */
void refuse_unreadable_quoted(const lan_request &request);
/** Answers success when op_ret, the result of a gateway service, is 0. */
void answer_result(const lan_request &request, int32_t op_ret);
/** Logs the result of a gateway service or check that was not 0. */
void log_op_ret(const lan_request &request, int32_t op_ret);

/** A service that takes over a parsed request when, and only when, it returns 0. */
using sf_service = int32_t (*)(sf_cmd_t *command);

/**
 * Gives a parsed request to a service.
 *
 * @return what the service returned; when 0 the request is no longer ours
 */
[[nodiscard]] int32_t hand_over(json_request &parsed, sf_service service);

/** Whether a text can be an id: it is printed into JSON answers unescaped. */
[[nodiscard]] bool is_id(const char *text);
