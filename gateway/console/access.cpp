#include "console/access.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <sys/random.h>

#include <array>
#include <stdexcept>

namespace console {
namespace {

/** Compares in a time that does not depend on where they differ. */
bool is_equal(std::string_view given, std::string_view expected) {
    if (given.size() != expected.size()) {
        return false;
    }
    unsigned difference = 0;
    for (std::size_t i = 0; i < given.size(); ++i) {
        difference |=
            static_cast<unsigned char>(given[i]) ^ static_cast<unsigned char>(expected[i]);
    }
    return difference == 0;
}

/** The next part of a text up to a separator, which is taken off the text with it. */
std::string_view take_part(std::string_view &text, char separator) {
    const std::size_t end = text.find(separator);
    const std::string_view part = text.substr(0, end);
    text = end == std::string_view::npos ? "" : text.substr(end + 1);
    return part;
}

/** The value of NAME=VALUE in a list of such, blanks before names left out; empty: none. */
std::string_view value_in(std::string_view list, char separator, std::string_view name) {
    while (!list.empty()) {
        std::string_view part = take_part(list, separator);
        part.remove_prefix(std::min(part.find_first_not_of(' '), part.size()));
        if (part.starts_with(name) && part.substr(name.size()).starts_with('=')) {
            return part.substr(name.size() + 1);
        }
    }
    return "";
}

/** Whether a host, without its port, is an address or localhost. */
bool is_no_name(const std::string &host) {
    std::array<unsigned char, sizeof(in6_addr)> address{};
    const bool is_bracketed = host.starts_with('[') && host.ends_with(']');
    return host == "localhost" || inet_pton(AF_INET, host.c_str(), address.data()) == 1 ||
           (is_bracketed &&
            inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), address.data()) == 1);
}

std::string_view without_port(std::string_view host) {
    const std::size_t colon = host.rfind(':');
    const bool has_port = colon != std::string_view::npos &&
                          host.find_first_not_of("0123456789", colon + 1) == host.npos;
    return has_port ? host.substr(0, colon) : host;
}

} // namespace

std::string make_token() {
    std::array<unsigned char, token_size / 2> random{};
    if (getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        throw std::runtime_error("no random numbers for the console's token");
    }
    std::string token;
    for (const unsigned char each : random) {
        token += fmt::format("{:02x}", each);
    }
    return token;
}

std::string cookie_name(uint16_t port) {
    return fmt::format("engr_console_{}", port);
}

std::string_view path_of(std::string_view target) {
    return target.substr(0, target.find('?'));
}

std::string refusal(const credentials &shown, const std::string &token, uint16_t port) {
    if (!is_no_name(std::string(without_port(shown.host)))) {
        return "the console is reached by its address only, not by a name";
    }
    if (shown.origin && *shown.origin != fmt::format("http://{}", shown.host)) {
        return "the console takes requests of its own page only";
    }
    std::string_view query = shown.target;
    take_part(query, '?');
    if (!is_equal(value_in(query, '&', "token"), token) &&
        !is_equal(value_in(shown.cookie.value_or(""), ';', cookie_name(port)), token)) {
        return "the token is missing or old: engr_gatewayd prints the whole address at its start";
    }
    return "";
}

} // namespace console
