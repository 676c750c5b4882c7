// What can go wrong between an app and a gateway.
#pragma once

#include <string>

namespace lan_client {

enum class error_kind {
    none,
    no_interface,    /**< the named network interface does not exist or may not be used */
    bad_address,     /**< the gateway's address is not an IPv4 address */
    refused,         /**< nobody listens at the address */
    unreachable,     /**< no way to the address, or no answer to the attempt to connect */
    table_full,      /**< closed at once without a byte: no room for another app */
    connection_lost, /**< closed after it had worked */
    timed_out,       /**< connected, but no answer in time */
    wrong_key,       /**< the answer can't be decrypted with any key at hand */
    deactivated, /**< the answer is under the built-in key, which is not among those to be used */
    damaged,     /**< the answer's CRC is wrong, or its segments are out of order */
    answer_too_long, /**< the answer is, or says that it will be, longer than any gateway's */
    too_large,       /**< the request is longer than gateways accept */
    queue_full,      /**< the gateway does not take what it is sent, and too much waits already */
    cancelled,       /**< the app closed the connection */
};

struct error {
    error_kind kind = error_kind::none;
    std::string detail; /**< the system's own words, may be empty */

    explicit operator bool() const { return kind != error_kind::none; }
};

/** A short name for machines, such as "timed_out". */
[[nodiscard]] const char *error_name(error_kind kind);

} // namespace lan_client
