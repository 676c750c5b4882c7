// The upgrade service: takes an offered image, has it transferred chunk by chunk, and installs it.
#pragma once

#include "gateway_services/scenario.h"
#include "subjects/received_image.h"

#include <nlohmann/json_fwd.hpp>

namespace gateway {

/**
 * Begins without an upgrade.
 *
 * @param kept_in  where images are kept
 */
void open_upgrades(const upgrade_scenario &scenario, image_medium kept_in);
/** Has an installation given up; no call of the service's own is under way when it returns. The
 * agent has been stopped. */
void stop_upgrades();
/** Forgets the last upgrade, after the agent's last call. */
void close_upgrades();

/** The agent has ended an upgrade: an offer whose transfer has not begun is given up soon after.
 * Any thread; waits for nothing. */
void note_upgrade_end();

/** Adds what has become of the last upgrade. */
void add_upgrade_status(nlohmann::ordered_json &status);

} // namespace gateway
