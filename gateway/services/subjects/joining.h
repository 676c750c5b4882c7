// Joining of new devices, while it is open.
#pragma once

#include "gateway_services/site.h"

#include <nlohmann/json_fwd.hpp>

#include <vector>

namespace gateway {

/**
 * Begins with joining closed.
 *
 * @param waiting  the devices that wait for it to be opened
 */
void open_joining(std::vector<joining_device> waiting);
/** Ends it. Nothing may be held. */
void shut_joining();

/** Closes joining; change_mutex is held. */
void close_joining();

/** Adds the state of joining; change_mutex is held. */
void add_joining_status(nlohmann::ordered_json &status);

} // namespace gateway
