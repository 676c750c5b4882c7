// The devices of a gateway as scripts get them: their online state and their firmware.
#pragma once

#include "gateway/answers.h"
#include "lan_client/client.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class gateway_session;

/**
 * @param list    the answer to device_list_request
 * @param states  the answer to line_state_request
 * @return the devices with their states; throws what explains a missing, refusing or unreadable
 *         answer
 */
[[nodiscard]] std::vector<lan_client::device_with_state>
expect_devices(gateway_session &session, const lan_client::answer &list,
               const lan_client::answer &states);

/**
 * Sends one request for each device, many at once, and shows a progress bar.
 *
 * @param count        how many devices there are
 * @param what         what the bar calls it
 * @param request_for  makes the request for the device at a place, from 0 on
 * @param take         gets the answer to it
 */
void ask_of_each(
    gateway_session &session, std::size_t count, const char *what,
    const std::function<lan_client::request(std::size_t at)> &request_for,
    const std::function<void(std::size_t at, const lan_client::answer &answered)> &take);

/** @return "device ID", or "device NAME (ID)" where the installer has named it */
[[nodiscard]] std::string device_text(gateway_session &session, const std::string &id);

/** @return the product of a device, asked of the gateway; empty when it doesn't know the device */
[[nodiscard]] std::string product_of(gateway_session &session, const std::string &id);

/** @return "online", "offline", or "-" when the gateway keeps it in neither list */
[[nodiscard]] const char *state_word(std::optional<bool> online);

/** The same for an entry of a list in JSON, by its member "online". */
[[nodiscard]] const char *state_word(const nlohmann::json &device_of_list);

/** What --help says about asking for versions. */
inline constexpr const char *versions_note =
    "A gateway tells versions only to an app that announces an image, so --versions announces an\n"
    "empty one. That withdraws what another app has announced and not started: its start fails\n"
    "with \"file_size is zero\", and it has to announce again. An upgrade under way goes on.\n\n";

/** @return a request for the gateway's own version, and whether an upgrade is under way */
[[nodiscard]] lan_client::request gateway_version_request();

/** Says that versions are asked for and what that does to others. */
void warn_of_withdrawal(gateway_session &session);

/** Versions of firmware; an empty text where the gateway tells none. */
struct firmware_versions {
    std::string gateway;
    std::vector<std::string> devices;
};

/** Asks for the gateway's own version and those of devices. Throws a failure while an upgrade is
 * under way, since asking would disturb it. */
[[nodiscard]] firmware_versions ask_versions(gateway_session &session,
                                             const std::vector<std::string> &ids);

} // namespace engr_app
