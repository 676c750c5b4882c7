// The devices of a gateway as scripts get them: their online state and their firmware.
#pragma once

#include "gateway/answers.h"
#include "lan_client/client.h"

#include <functional>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace engr_app {

class gateway_session;

/**
 * @param list    the answer to device_list_request
 * @param states  the answer to line_state_request
 * @return [{"cid", "pid", "online"}], with "online" null where the gateway keeps a device in
 *         neither list; throws what explains a missing, refusing or unreadable answer
 */
[[nodiscard]] nlohmann::json expect_devices(gateway_session &session,
                                            const lan_client::answer &list,
                                            const lan_client::answer &states);

/**
 * Sends one request for each entry of that list, many at once, and shows a progress bar.
 *
 * @param what         what the bar calls it
 * @param request_for  makes the request
 * @param take         gets the answer
 */
void ask_of_each(
    gateway_session &session, nlohmann::json &devices, const char *what,
    const std::function<lan_client::request(const nlohmann::json &device)> &request_for,
    const std::function<void(nlohmann::json &device, const lan_client::answer &answered)> &take);

/** @return "device ID", or "device NAME (ID)" where the installer has named it */
[[nodiscard]] std::string device_text(gateway_session &session, const std::string &id);

/** @return the product of a device, asked of the gateway; empty when it doesn't know the device */
[[nodiscard]] std::string product_of(gateway_session &session, const std::string &id);

/** @return "online", "offline" or "-" for an entry of that list */
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

/**
 * Adds "sw_ver" to each entry of a device list, null where the gateway tells none. Throws a
 * failure while an upgrade is under way, since asking would disturb it.
 *
 * @return the gateway's own version
 */
std::string add_versions(gateway_session &session, nlohmann::json &devices);

} // namespace engr_app
