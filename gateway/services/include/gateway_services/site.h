// A site: what a gateway and its devices are when their life begins.
#pragma once

#include "gateway_services/fields.h"

#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** A field with its value. */
struct field_setting {
    const field *of;
    field_value value;
};

/** One device of a site. */
struct site_device {
    std::vector<field_setting> fields; /**< dev_id, and what else was given */
    std::string dps = "{}";            /**< its data points, a JSON object */
};

/** A gateway's fields and its devices in list order. What is left out has its default. */
struct site {
    std::vector<field_setting> gateway;
    std::vector<site_device> devices;
};

/**
 * Reads a site file.
 *
 * @param text       its content
 * @param file_name  its name, for messages
 * @throws usage_error that names the file, the member and what is wrong
 */
site parse_site(std::string_view text, const std::string &file_name);

/** Defaults of a gateway's fields: those of the demo gateway. */
std::vector<field_setting> default_gateway();
/** The built-in site: a gateway with devices of several kinds. */
site demo_site();

} // namespace gateway
