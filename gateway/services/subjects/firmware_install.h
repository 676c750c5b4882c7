// Installation of firmware: image and version change together, also when the gateway is killed.
#pragma once

#include "subjects/received_image.h"

#include <string>

namespace gateway {

/** Name of the file with the gateway's own image, and with the one that a device got last. */
constexpr const char *gateway_image_name = "firmware-gateway.bin";
constexpr const char *device_image_name = "firmware-device.bin";

/** What a firmware is installed on. */
struct firmware_target {
    std::string dev_id; /**< of a device in the list; empty: the gateway itself */
    std::string sw_ver; /**< version that it has afterwards */
};

/**
 * Refuses an image that is not complete, or not the one that was announced.
 *
 * @throws refused
 */
void verify_image(received_image &image, const char *announced_md5);
/**
 * Refuses a version that cannot be reported to apps.
 *
 * @throws usage_error
 */
void check_version(const firmware_target &target);
/**
 * Version that the target has at present.
 *
 * @throws refused  there is no such device
 */
std::string installed_version(const std::string &dev_id);

/**
 * Makes a complete image the installed one, and its version that of the target in the store; of the
 * gateway also in its record, a device's record is left to the agent. After a kill at any moment
 * the store matches the installed image.
 *
 * @throws refused  nothing has changed; or image and version could not both be stored, which the
 * next recover_installation sets right
 */
void install_firmware(received_image &image, const firmware_target &target);

/**
 * Completes an installation whose image is in place, but whose version could not be stored. Called
 * before another image is received, whose partial file would make it look unfinished.
 *
 * @throws refused  it still cannot be completed
 */
void settle_installation();

/**
 * Completes an installation that was interrupted after its image was in place, and removes other
 * leftovers. Called before the store is read.
 *
 * @throws refused
 */
void recover_installation();

} // namespace gateway
