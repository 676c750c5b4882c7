// Products: which data points their devices have, and which values those take.
#pragma once

#include "support/json_value.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

/** Setting that keeps the products as they stand in a site file. */
constexpr std::string_view products_setting = "products";

/** Bytes of the longest text that a data point can have. */
constexpr std::size_t text_value_bytes_max = 1024;

/** What one data point of a product is. */
struct data_point_kind {
    enum class form : uint8_t { boolean, number, choice, text };

    form of = form::boolean;
    int64_t lowest = INT32_MIN;       /**< of a number */
    int64_t highest = INT32_MAX;      /**< of a number */
    std::vector<std::string> choices; /**< the texts of a choice, one or more */
    std::size_t bytes_max = 0;        /**< of a text */
    bool is_read_only = false;        /**< the device reports it, nobody else sets it */
};

/** Data points of a product by their numbers. */
using product = std::map<int, data_point_kind>;
/** Products by their ids. */
using product_table = std::map<std::string, product, std::less<>>;

/**
 * Reads the products of a site file.
 *
 * @throws usage_error
 */
product_table read_product_table(const support::json_value &from);

/** Who sets data points: an app by a command, or the device itself. */
enum class setter : uint8_t { app, device };

/**
 * Compares data points with what their product has. A product that is not in the table has any.
 *
 * @param dps  a valid object of data points
 * @throws refused  that says what is wrong
 */
void check_product_values(const product_table &products, std::string_view pid,
                          const nlohmann::ordered_json &dps, setter by);

/**
 * Takes over the gateway's products, at the start.
 *
 * @param stored  as in a site file; empty: none
 * @throws refused  it cannot be read
 */
void products_init(const std::string &stored);
/** The gateway's products, unchanged from open to close. */
const product_table &the_products();
/** Data points of a device that has just been made; none when its product is not described. */
std::string first_data_points(std::string_view pid);

} // namespace gateway
