// The control protocol of a running gateway: the table of verbs, and the lines that carry them.
//
// A client sends one JSON line, {"verb": NAME, "args": [TEXT, ...]}, and gets one back: {"result":
// ...}, or {"error": TEXT, "usage": true or false}; "usage" says that the request can never be
// right.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace control {

/** One verb. */
struct verb {
    std::string_view name;
    const char *arguments; /**< for the help text */
    std::size_t least;     /**< fewest arguments */
    std::size_t most;      /**< most arguments */
    const char *help;
    int wait_s = 5; /**< how long a client waits for the answer by itself */
};

/** For verbs that wait for slow apps. */
constexpr int long_wait_s = 60;

/** All verbs. */
inline constexpr verb verbs[] = {
    {"status", "", 0, 0, "Shows the state of gateway and agent, with faults and callbacks"},
    {"devices", "[--json]", 0, 1, "Lists the devices: as a table on a terminal, else as JSON"},
    {"set", "FIELD VALUE", 2, 2, "Sets a field of the gateway record; '' empties a text"},
    {"device", "ID FIELD VALUE", 3, 3, "Sets a field of a device"},
    {"report", "ID DP=VALUE...", 2, 256,
     "A device reports data points, as in 1=true 3=auto, or as JSON '{\"1\": true}'"},
    {"join", "ID [PID]", 1, 2, "A device joins at once; joining has to be open"},
    {"network", "up|down", 1, 1,
     "Tells the agent that its network is down, or up; apps that are connected stay"},
    {"ip", "ADDRESS|auto", 1, 1,
     "Sets the address that the platform reports; '' for none, auto for the real one"},
    {"wifi-config-needed", "0|1", 1, 1, "Sets whether the gateway needs Wi-Fi configuration"},
    {"wifi-mode", "N", 1, 1, "Sets the work mode of the Wi-Fi layer; 4 is its own access point"},
    {"airkiss", "STATUS ACTIVE", 2, 2,
     "Sets the Wi-Fi station status (4, 6 and 7: connected), and 1 for active"},
    {"fault", "SERVICE RESULT|off", 2, 2,
     "Makes a service return RESULT instead of doing its work"},
    {"callback", "NAME RESULT|absent|present", 2, 2,
     "Makes a callback return RESULT, removes it, or restores it"},
    {"register", "FRAME_TYPE RESULT", 2, 2, "Registers a frame handler that returns RESULT"},
    {"upgrade", "start [OPTION VALUE...]", 1, 11,
     "The service starts a transfer; --cid ID, --file-size N, --chunk-size N, --percent 0|1, "
     "--remain N",
     long_wait_s},
    {"call", "FUNCTION [ARG...]", 1, 16, "Calls an exported function of the agent", long_wait_s},
};

/** A text for a terminal: what is not printable ASCII becomes \n, \u001b and the like. */
std::string terminal_text(std::string_view text);

/** The verb of that name, or null. */
const verb *find_verb(std::string_view name);
/** @return the error in the verb or the number of its arguments; empty when both are right */
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

/**
 * A result for a person: an object of several members takes a line for each.
 *
 * @param for_terminal  what is not ASCII is escaped
 */
std::string shown_result(const nlohmann::ordered_json &result, bool for_terminal = false);

/** The reply line of a request that succeeded. */
std::string result_line(const nlohmann::ordered_json &result);
/** The reply line of a request that failed. */
std::string error_line(std::string_view message, bool is_usage);

} // namespace control
