// A site: the initial state of a gateway and its devices.
#pragma once

#include "gateway_services/fields.h"

#include <cstdint>
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

    /**
     * Sets a field, whether it was given or not.
     *
     * @param name  one of device_fields()
     */
    void set(std::string_view name, field_value value);
    /**
     * A field that was given, else null.
     *
     * @param of  one of device_fields()
     */
    [[nodiscard]] const field_value *find(const field &of) const;
    /** The same by the field's name. */
    [[nodiscard]] const field_value *find(std::string_view name) const;
    /** Its dev_id. */
    [[nodiscard]] const std::string &id() const;
};

/** A device that waits to join. */
struct joining_device : site_device {
    uint32_t join_after_ms = 2000; /**< after the opening of joining, or after the one before it */
};

/** A gateway's fields, its devices in list order, those that may join, and what apps have made of
 * them. What is left out has its default. */
struct site {
    std::vector<field_setting> gateway;
    std::vector<site_device> devices;
    std::vector<joining_device> joining;
    std::string products = {}; /**< what data points products have, a JSON object as in a site file;
                                  empty: nothing is known of any */
    std::string arrangement = {}; /**< what apps have made of the devices: "groups", "scenes",
                                     "panels" and "linkage", a JSON object with these members of a
                                     site file; empty: nothing */
};

/** The text of a site file with all fields, secrets included. */
std::string site_text(const site &of);

/** Number of a gateway that is alone on its host. */
constexpr uint32_t first_gateway_number = 1;
/**
 * Number that distinguishes gateways on several addresses; 1 for 127.0.0.1 and for a text that is
 * no address.
 *
 * @param address  dotted decimal
 */
uint32_t gateway_number(const std::string &address);

/**
 * Reads a site file.
 *
 * @param text       its content
 * @param file_name  its name, for messages
 * @param number     as for default_gateway
 * @throws usage_error that names the file, the member and what is wrong
 */
site parse_site(std::string_view text, const std::string &file_name,
                uint32_t number = first_gateway_number);

/**
 * Defaults of a gateway's fields.
 *
 * @param number  ends its ids
 */
std::vector<field_setting> default_gateway(uint32_t number = first_gateway_number);
/**
 * The built-in site: a gateway with devices of several kinds.
 *
 * @param number  as for default_gateway
 */
site demo_site(uint32_t number = first_gateway_number);

} // namespace gateway
