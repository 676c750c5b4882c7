// Joining of new devices, while it is open.
#pragma once

#include "gateway_services/site.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <vector>

namespace gateway {

/**
 * Initialises the module; joining is closed.
 *
 * @param waiting  the devices that join, one after the other, while joining is open
 */
void joining_init(std::vector<joining_device> waiting);
/** Ends the module. No mutex may be held. */
void joining_shutdown();

/**
 * Opens joining for a time, or closes it.
 *
 * @param kind    as the app gave it; shown in the status
 * @param time_s  0: close
 * @return false when it could not be opened
 */
bool permit_joining(uint8_t kind, uint32_t time_s);
/** Closes joining; change_mutex is held. */
void close_joining();

/** Adds the state of joining; change_mutex is held. */
void add_joining_status(nlohmann::ordered_json &status);

} // namespace gateway
