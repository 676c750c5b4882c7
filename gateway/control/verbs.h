// What can be asked of a running gateway: the one table of verbs, and the lines that carry them.
//
// A client sends one JSON line, {"verb": NAME, "args": [TEXT, ...]}, and gets one back: {"result":
// ...}, or {"error": TEXT, "usage": true or false}; "usage" says that the request can never be
// right.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace control {

/** One verb. */
struct verb {
    const char *name;
    const char *arguments; /**< as help shows them */
    std::size_t least;     /**< fewest arguments */
    std::size_t most;      /**< most arguments */
    const char *help;
};

/** All verbs. */
std::span<const verb> verbs();

/** @return what is wrong with the verb or the number of its arguments; empty when nothing is */
std::string usage_fault(std::string_view name, std::size_t argument_count);

/** A verb with its arguments. */
struct request {
    std::string verb;
    std::vector<std::string> arguments;
};

/**
 * The line of a request, line feed included.
 *
 * @throws nlohmann::json::exception  an argument is not UTF-8
 */
std::string request_line(const request &asked);
/** @return the request of a line; its verb is empty when the line is no request */
request parse_request(std::string_view line);

/** The line of a good answer. */
std::string result_line(const nlohmann::ordered_json &result);
/** The line of a refusal. */
std::string error_line(std::string_view message, bool is_usage);

} // namespace control
