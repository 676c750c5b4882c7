// Whole numbers as people type them.
#pragma once

#include "gateway_services/error.h"

#include <charconv>
#include <limits>
#include <string>

namespace gatewayd {

/**
 * Reads a whole number of a type.
 *
 * @param what  its name, for the message
 * @throws gateway::usage_error
 */
template <typename Number>
Number number_from_text(const std::string &what, const std::string &text) {
    Number number{};
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) {
        throw gateway::usage_error(what + ": '" + text + "' is not a whole number from " +
                                   std::to_string(std::numeric_limits<Number>::min()) + " to " +
                                   std::to_string(std::numeric_limits<Number>::max()));
    }
    return number;
}

} // namespace gatewayd
