// Answers that lan_client reads, with a failure in place of nothing where one can't be read.
#pragma once

#include "lan_client/devices.h"
#include "lan_client/upgrade_status.h"

#include <string_view>
#include <vector>

namespace engr_app {

using lan_client::announce_request;
using lan_client::device;
using lan_client::device_list_request;
using lan_client::line_state;
using lan_client::line_state_request;
using lan_client::same_version;
using lan_client::says_no_devices;
using lan_client::start_request;
using lan_client::upgrade_order;
using lan_client::upgrade_status;
using lan_client::upgrade_status_request;

/** @return the devices of an answer; throws a failure when the payload is no device list */
[[nodiscard]] std::vector<device> parse_device_list(std::string_view payload);

/** @return the lists of an answer; throws a failure when the payload has none */
[[nodiscard]] line_state parse_line_state(std::string_view payload);

/** @return the answer to an announcement; throws a failure when the payload is none */
[[nodiscard]] upgrade_status parse_upgrade_status(const upgrade_order &order,
                                                  std::string_view payload);

} // namespace engr_app
