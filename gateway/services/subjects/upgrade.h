// The upgrade service: takes an offered image, has it transferred chunk by chunk, and installs it.
#pragma once

#include "gateway/upgrade.h"
#include "gateway_services/scenario.h"
#include "subjects/firmware.h"

#include <nlohmann/json_fwd.hpp>

#include <functional>

namespace gateway {

/**
 * Initialises the module; there is no upgrade.
 *
 * @param kept_in        where images are kept
 * @param installing_ms  as in open_options
 */
void upgrade_init(const upgrade_scenario &scenario, image_medium kept_in,
                  std::function<uint32_t(uint32_t scenario_ms)> installing_ms);
/** Gives an installation up, and waits for the service's own calls of the agent, which has been
 * stopped. */
void upgrade_stop();
/** Forgets the last upgrade, after the agent's last call. */
void upgrade_shutdown();

/**
 * Takes an image that an app offers, or refuses it.
 *
 * @param dev_id  device; empty: the gateway
 * @return 0; else it is refused
 */
int32_t receive_offer(const char *dev_id, const lan_fw_info_t &firmware);

/** The agent has ended an upgrade: an offer whose transfer has not begun is given up soon after.
 * Any thread; never waits. */
void note_upgrade_end();

/** Adds the last upgrade. */
void add_upgrade_status(nlohmann::ordered_json &status);

} // namespace gateway
