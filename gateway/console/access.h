// Who may talk to the console: a browser that has the token and was not sent by another page.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace console {

/** Characters of a token. */
constexpr std::size_t token_size = 32;

/**
 * A token that nobody can guess, in hexadecimal digits.
 *
 * @throws std::runtime_error  the system has no random numbers
 */
std::string make_token();

/** What a request shows of who sent it; views of the request. */
struct credentials {
    std::string_view target;                     /**< path and query */
    std::string_view host;                       /**< header field; empty: none */
    std::optional<std::string_view> origin = {}; /**< header field */
    std::optional<std::string_view> cookie = {}; /**< header field */
};

/** Name of the cookie that keeps the token. A browser sends cookies to all ports of a host, so the
 * name has the port. */
std::string cookie_name(uint16_t port);

/**
 * Why a request is refused, in words for the person at the browser; empty when it is not.
 *
 * A name in Host could have been pointed here by a stranger's page, so only an address and
 * "localhost" pass. Origin, where a browser sends it, has to be this very page.
 *
 * @param port  of the server
 */
std::string refusal(const credentials &shown, const std::string &token, uint16_t port);

/** The path of a target, without its query. */
std::string_view path_of(std::string_view target);

} // namespace console
