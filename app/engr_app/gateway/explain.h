// Why a gateway did not do what it was asked for, and what to do next: one table for all verbs.
#pragma once

#include "base/failure.h"
#include "gateway/discovery.h"
#include "lan_client/client.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace engr_app {

class gateway_session;

/** @return the failure for what went wrong on the way to the session's gateway */
[[nodiscard]] failure explain(gateway_session &session, const lan_client::error &problem);

/**
 * @param unanswered  a request that failed; when its frame type is one whose refusal is silence,
 *                    the failure is of the kind "not_accepted"
 */
[[nodiscard]] failure explain(gateway_session &session, const lan_client::answer &unanswered);

/**
 * @param type     the frame type that was refused
 * @param payload  the gateway's reason, as a text or as {"reason": TEXT}
 * @return a failure of the kind "refused_by_gateway" with the reason and what to do next
 */
[[nodiscard]] failure refusal(gateway_session &session, uint32_t type, std::string_view payload);

/** @return the failure for an activated gateway without a local key */
[[nodiscard]] failure missing_key(const gateway &target);

/** @return what it means that the gateway uses the built-in key although a local one was given */
[[nodiscard]] std::string deactivated_sentence(const gateway &target);

} // namespace engr_app
