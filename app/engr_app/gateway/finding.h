// Finding the gateway that a run is for: by what was heard of it before, or by listening.
#pragma once

#include "gateway/discovery.h"

#include <string>

namespace engr_app {

class gateway_session;

/**
 * @param named  ADDRESS[:PORT] or ID; empty: the only one there is
 * @return that gateway; throws a failure when it is not heard
 */
[[nodiscard]] gateway find_gateway(gateway_session &session, const std::string &named);

/** @return the gateway with this id, from an announcement of now */
[[nodiscard]] gateway listen_for(gateway_session &session, const std::string &id);

/**
 * @return where the gateway with this id was heard last, if it can be taken to be there still: by
 *         a short time since then, or by hardware that can be compared once it answers
 */
[[nodiscard]] std::optional<gateway> recall(gateway_session &session, const std::string &id);

/**
 * @return the announcement that came from an address lately and whose id has a key in the key
 *         file; so the key of a gateway that is named by its address is found without listening
 */
[[nodiscard]] std::optional<lan_client::announcement> recall_with_key(gateway_session &session,
                                                                      const std::string &address);

/** @return whether the hardware at a recalled gateway's address is known to be another one now */
[[nodiscard]] bool has_other_hardware(gateway_session &session, const gateway &recalled);

/** Keeps which hardware a gateway has, once a connection to it stands. */
void keep_hardware(gateway_session &session, const gateway &connected);

} // namespace engr_app
