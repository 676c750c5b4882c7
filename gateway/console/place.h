// Where the console is served, as people write it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace console {

/** Port of a console unless another is chosen. */
constexpr uint16_t usual_port = 6680;

/** An address and a port. */
struct place {
    std::string address; /**< IPv4 or IPv6 */
    uint16_t port = 0;   /**< 0: a free one */
};

/**
 * Reads ADDRESS:PORT, ADDRESS or PORT, an IPv6 address with a port in brackets.
 *
 * @param usual  for what is left out
 * @return none: it is nothing of the kind
 */
std::optional<place> read_place(const std::string &text, place usual);

/** Whether an address is of this machine only. */
bool is_loopback(const std::string &address);

} // namespace console
